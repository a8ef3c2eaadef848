// Measures the program's start: the program itself, but for a delegate that ends it as soon as the
// list has been drawn.

#include "ui/MainWindow.h"
#include "ui/ViewController.h"
#include "ui/platform/Application.h"

#include <QApplication>
#include <QTimer>
#include <QWidget>

namespace {

class EndingDelegate : public platform::ApplicationDelegate
{
public:
    EndingDelegate() { QObject::connect(&m_end, &QTimer::timeout, qApp, &QApplication::quit); }

    void applicationDidFinishLaunching() override
    {
        for (QWidget *window : QApplication::topLevelWidgets()) {
            window->repaint();
        }
        m_end.start(0);
    }
    void applicationWillTerminate() override {}
    bool applicationShouldTerminateAfterLastWindowClosed() override { return true; }

private:
    QTimer m_end;
};

} // namespace

int main(int argc, char *argv[])
{
    platform::ApplicationInformation information;
    information.name = QStringLiteral("Tarnwell");
    information.setUpMainLayout = setUpMainWindow;
    information.makeDelegate = [] { return std::make_unique<EndingDelegate>(); };
    information.makeViewController = [](platform::Coder &coder) {
        return std::make_unique<ViewController>(coder);
    };
    return platform::applicationMain(argc, argv, information);
}
