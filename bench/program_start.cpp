// Measures the program's start: the program itself, but for a delegate that ends it as soon as the
// list has been drawn. With the argument "select" two applications are selected in turn before
// that, and the median of the milliseconds is printed that a selection takes of an application
// that was selected before.

#include "ui/MainWindow.h"
#include "ui/ViewController.h"
#include "ui/platform/Application.h"
#include "ui/platform/ArrayController.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace {

void measureSelection(platform::ArrayController &controller)
{
    std::array<qint64, 101> nanoseconds = {};
    controller.setSelectionIndexes({0});
    for (std::size_t i = 0; i < nanoseconds.size(); ++i) {
        controller.setSelectionIndexes({1});
        QElapsedTimer elapsed;
        elapsed.start();
        controller.setSelectionIndexes({0});
        nanoseconds[i] = elapsed.nsecsElapsed();
    }
    std::sort(nanoseconds.begin(), nanoseconds.end());
    std::printf("%.3f\n", double(nanoseconds[nanoseconds.size() / 2]) / 1e6);
}

class EndingDelegate : public platform::ApplicationDelegate
{
public:
    explicit EndingDelegate(std::function<void()> work) : m_work(std::move(work))
    {
        QObject::connect(&m_end, &QTimer::timeout, qApp, &QApplication::quit);
    }

    void applicationDidFinishLaunching() override
    {
        for (QWidget *window : QApplication::topLevelWidgets()) {
            window->repaint();
        }
        m_work();
        m_end.start(0);
    }
    void applicationWillTerminate() override {}
    bool applicationShouldTerminateAfterLastWindowClosed() override { return true; }

private:
    std::function<void()> m_work;
    QTimer m_end;
};

} // namespace

int main(int argc, char *argv[])
{
    const bool selects = argc > 1 && std::string_view(argv[1]) == "select";
    ViewController *viewController = nullptr;
    platform::ApplicationInformation information;
    information.name = QStringLiteral("Tarnwell");
    information.setUpMainLayout = setUpMainWindow;
    information.makeDelegate = [&] {
        return std::make_unique<EndingDelegate>([&] {
            if (selects) {
                measureSelection(*viewController->appsArrayController());
            }
        });
    };
    information.makeViewController = [&](platform::Coder &coder) {
        auto controller = std::make_unique<ViewController>(coder);
        viewController = controller.get();
        return controller;
    };
    return platform::applicationMain(argc, argv, information);
}
