#include "ui/platform/Application.h"

#include "system/platform/TerminationSignals.h"
#include "ui/platform/DesktopSession.h"
#include "ui/platform/InputGate.h"
#include "ui/platform/LayoutConnections.h"
#include "ui/platform/ViewController.h"

#include "system/platform/files/StandardStreams.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QIcon>
#include <QLocale>
#include <QMainWindow>
#include <QSessionManager>
#include <QSocketNotifier>
#include <QWindow>

#include <unistd.h>

#include <array>
#include <csignal>

namespace platform {

namespace {

/// Shows the window and returns when it has been drawn, or soon where nobody looks at it.
void showDrawn(QMainWindow &window)
{
    window.show();
    constexpr int longestWait = 1000; // milliseconds
    QElapsedTimer waiting;
    waiting.start();
    while (!window.windowHandle()->isExposed() && !waiting.hasExpired(longestWait)) {
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents, 20);
    }
    window.repaint();
}

void discardBytes(int pipe)
{
    std::array<char, 16> bytes;
    while (::read(pipe, bytes.data(), bytes.size()) > 0) {
    }
}

} // namespace

int applicationMain(int argc, char *argv[], const ApplicationInformation &information)
{
    openStandardStreams();
    // A reader of standard output that went away must not end a restore half-way.
    std::signal(SIGPIPE, SIG_IGN);
    const int terminationSignals = watchTerminationSignals();

    int programNameOnly = qMin(argc, 1);
    QApplication application(programNameOnly, argv);
    QApplication::setApplicationName(information.name.toLower());
    QApplication::setApplicationDisplayName(information.name);
    QApplication::setApplicationVersion(information.version);
    QApplication::setDesktopFileName(information.desktopFileName);
    QApplication::setWindowIcon(QIcon(information.iconFile));
    QApplication::setLayoutDirection(QLocale().textDirection());
    QApplication::setQuitOnLastWindowClosed(false);

    const auto delegate = information.makeDelegate();
    QObject::connect(&application, &QApplication::lastWindowClosed, &application, [&] {
        if (delegate->applicationShouldTerminateAfterLastWindowClosed()) {
            QApplication::quit();
        }
    });
    QObject::connect(&application, &QApplication::aboutToQuit, &application,
                     [&] { delegate->applicationWillTerminate(); });

    Coder coder;
    const auto controller = information.makeViewController(coder);
    QMainWindow window;
    information.setUpMainLayout(window);
    const LayoutConnections connections(window, *controller, nullptr);

    watchSessionManager();
    QSocketNotifier termination(terminationSignals, QSocketNotifier::Read);
    QObject::connect(&termination, &QSocketNotifier::activated, &termination, [&] {
        discardBytes(terminationSignals);
        InputGate::shared().requestEnd();
    });
    QObject::connect(&application, &QApplication::commitDataRequest, &application,
                     [](QSessionManager &session) {
                         session.setRestartHint(QSessionManager::RestartNever);
                         if (InputGate::shared().isWorkUnderWay()) {
                             InputGate::shared().requestEnd();
                         }
                     });

    {
        const InputGate::Work loading(InputGate::Kind::Loading);
        showDrawn(window);
        controller->viewDidLoad();
    }
    delegate->applicationDidFinishLaunching();
    if (!window.isVisible() && delegate->applicationShouldTerminateAfterLastWindowClosed()) {
        delegate->applicationWillTerminate(); // closed before the event loop could tell
        return 0;
    }
    return QApplication::exec();
}

} // namespace platform
