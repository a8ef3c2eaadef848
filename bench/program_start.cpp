// Measures the program's start: the program itself, but for a delegate that ends it as soon as the
// list has been drawn. Before that
// - with the argument "select" two applications are selected in turn, and the median of the
//   milliseconds is printed that a selection takes of an application that was selected before;
// - with the argument "browse" the list is scrolled by pages and filtered by texts, and the
//   milliseconds are printed after which the slowest page and the slowest text were drawn;
// - with the argument "command" the first application's data is backed up, by its button and by the
//   file service alone, in turn, and the median milliseconds of both are printed.

#include "model/App.h"
#include "system/platform/FileManager.h"
#include "system/platform/files/Progress.h"
#include "ui/MainWindow.h"
#include "ui/ViewController.h"
#include "ui/platform/Application.h"
#include "ui/platform/ArrayController.h"
#include "ui/platform/FilterField.h"
#include "ui/platform/TableView.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QPushButton>
#include <QScrollBar>
#include <QTimer>
#include <QWidget>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace {

using platform::FileManager;

double millisecondsOf(const std::function<void()> &work)
{
    QElapsedTimer elapsed;
    elapsed.start();
    work();
    return double(elapsed.nsecsElapsed()) / 1e6;
}

template <typename Values>
double median(Values values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void measureSelection(platform::ArrayController &controller)
{
    std::array<double, 101> milliseconds = {};
    controller.setSelectionIndexes({0});
    for (double &value : milliseconds) {
        controller.setSelectionIndexes({1});
        value = millisecondsOf([&] { controller.setSelectionIndexes({0}); });
    }
    std::printf("%.3f\n", median(milliseconds));
}

template <typename Widget>
Widget *find(const QString &name = {})
{
    for (QWidget *window : QApplication::topLevelWidgets()) {
        if (auto *const found = window->findChild<Widget *>(name)) {
            return found;
        }
    }
    qFatal("There is no %s %s", Widget::staticMetaObject.className(), qPrintable(name));
}

void measureBrowsing()
{
    constexpr int pages = 300;
    const auto draw = [](const std::function<void()> &change) {
        return millisecondsOf([&] {
            change();
            QCoreApplication::processEvents();
        });
    };
    QScrollBar *const bar = find<platform::TableView>()->verticalScrollBar();
    double slowestPage = 0;
    for (int page = 0; page < pages; ++page) {
        const auto scroll = [&] { bar->setValue(page % 100 * bar->pageStep()); };
        slowestPage = std::max(slowestPage, draw(scroll));
    }
    auto *const filter = find<platform::FilterField>();
    double slowestText = 0;
    for (const char *text : {"1", "12", "123", "1234", "123", "12", "1", ""}) {
        const auto type = [&] { filter->setText(QString::fromLatin1(text)); };
        slowestText = std::max(slowestText, draw(type));
    }
    std::printf("%.1f %.1f\n", slowestPage, slowestText);
}

bool copyAlone(const QString &source, const QString &destination)
{
    platform::ProgressObserver *const observer = platform::Work::observer();
    platform::Work::setObserver(nullptr);
    const bool isCopied =
        FileManager::defaultManager().copyItemAtPath(source, destination, nullptr);
    platform::Work::setObserver(observer);
    return isCopied;
}

void measureCommand(platform::ArrayController &controller)
{
    constexpr std::size_t rounds = 15; // after one to warm up
    std::array<double, rounds> command = {};
    std::array<double, rounds> alone = {};
    QPushButton *const backUp = find<QPushButton>(QStringLiteral("backUpDataButton"));
    for (std::size_t round = 0; round <= rounds; ++round) {
        for (const bool isCommand : {round % 2 == 0, round % 2 != 0}) {
            controller.setSelectionIndexes({1});
            controller.setSelectionIndexes({0});
            auto *const app = qobject_cast<App *>(controller.selectedObjects().value(0));
            const QString data = app ? app->data()->path() : QString();
            const QString backup = data + QStringLiteral(".bak");
            bool isDone = backUp->isEnabled();
            const double time = isCommand
                                    ? millisecondsOf([&] { backUp->click(); })
                                    : millisecondsOf([&] { isDone = copyAlone(data, backup); });
            isDone = isDone && FileManager::defaultManager().removeItemAtPath(backup, nullptr);
            if (!isDone) {
                qFatal("The first application's data cannot be backed up.");
            }
            (isCommand ? command : alone)[round > 0 ? round - 1 : 0] = time;
        }
    }
    std::printf("%.1f %.1f\n", median(command), median(alone));
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
    const std::string_view work = argc > 1 ? argv[1] : "";
    ViewController *viewController = nullptr;
    platform::ApplicationInformation information;
    information.name = QStringLiteral("Tarnwell");
    information.setUpMainLayout = setUpMainWindow;
    information.makeDelegate = [&] {
        return std::make_unique<EndingDelegate>([&] {
            platform::ArrayController &controller = *viewController->appsArrayController();
            if (work == "select") {
                measureSelection(controller);
            } else if (work == "browse") {
                measureBrowsing();
            } else if (work == "command") {
                measureCommand(controller);
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
