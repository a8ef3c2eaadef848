// Measures the program's start: the program itself, but for a delegate that ends it as soon as the
// list has been drawn.

#include "ui/MainWindow.h"
#include "ui/ViewController.h"
#include "ui/platform/Application.h"

#include <QApplication>
#include <QWidget>

namespace {

class EndingDelegate : public platform::ApplicationDelegate
{
public:
    void applicationDidFinishLaunching() override
    {
        for (QWidget *window : QApplication::topLevelWidgets()) {
            window->repaint();
        }
        QApplication::postEvent(qApp, new QEvent(QEvent::Quit));
    }
    void applicationWillTerminate() override {}
    bool applicationShouldTerminateAfterLastWindowClosed() override { return true; }
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
