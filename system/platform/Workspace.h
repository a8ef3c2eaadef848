#pragma once

#include <QCache>
#include <QIcon>
#include <QString>
#include <QUrl>

namespace platform {

/// Stands for NSWorkspace: what the desktop does with an item of the volume.
///
/// The operations hand an item over and return; none waits for the window or the program that
/// appears. Paths and file URLs are the program's own. Nothing is reported but yes or no.
class Workspace
{
public:
    static Workspace &sharedWorkspace();

    /// An image that stands for the item: the largest and the smaller images of the icon file
    /// (.icns or PNG) that an application bundle names, else the desktop's icon for programs. Never
    /// null. The icons asked for last are kept, and not read again.
    QIcon iconForFile(const QString &path);

    /// Opens the item of a file URL with the program that the desktop assigns to it.
    bool openURL(const QUrl &url);

    /// Shows the item selected in a window of the desktop's file manager, by its D-Bus service
    /// org.freedesktop.FileManager1; where there is no such service, opens the enclosing folder.
    /// The choice of window is the file manager's, whatever the root path.
    bool selectFile(const QString &path, const QString &rootPath);

    /// Starts the application's executable, detached, if this host can run it. Answers no
    /// otherwise, when the application is running already, and when the executable's path is not
    /// UTF-8.
    bool launchApplication(const QString &path);

private:
    Workspace();

    QCache<QString, QIcon> m_recentIcons; ///< costs are kibibytes
};

} // namespace platform
