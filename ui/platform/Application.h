#pragma once

#include <QString>

#include <functional>
#include <memory>

class QMainWindow;

namespace platform {

class Coder;
class ViewController;

/// Stands for NSApplicationDelegate: is told of the application's life.
class ApplicationDelegate
{
public:
    virtual ~ApplicationDelegate() = default;

    virtual void applicationDidFinishLaunching() = 0;
    virtual void applicationWillTerminate() = 0;

    /// Whether the application ends when the user has closed the last window.
    virtual bool applicationShouldTerminateAfterLastWindowClosed() = 0;
};

/// Stands for the application's information property list: its names, its icon, its main layout
/// and the classes of the objects in that layout.
struct ApplicationInformation
{
    QString name;
    QString version;
    QString desktopFileName; ///< without ".desktop"
    QString iconFile;
    std::function<void(QMainWindow &)> setUpMainLayout;
    std::function<std::unique_ptr<ApplicationDelegate>()> makeDelegate;
    std::function<std::unique_ptr<ViewController>(Coder &)> makeViewController;
};

/// Stands for NSApplicationMain: creates the application, loads the main layout and connects it,
/// shows the window, lets the view controller load its content, and runs the event loop. Returns
/// the exit status.
///
/// SIGTERM, SIGINT, SIGHUP and the end of the desktop's session end the program as closing the
/// window does, after the work under way; so does closing it while its content is loaded.
///
/// The arguments are the application's; none of them is interpreted, Qt's own options neither.
int applicationMain(int argc, char *argv[], const ApplicationInformation &information);

} // namespace platform
