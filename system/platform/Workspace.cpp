#include "system/platform/Workspace.h"

#include "system/platform/Bundle.h"
#include "system/platform/FileManager.h"
#include "system/platform/IconImages.h"
#include "system/platform/PathEncoding.h"
#include "system/platform/Task.h"
#include "system/platform/files/Volume.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusReply>
#include <QFileInfo>
#include <QPainter>
#include <QPixmap>
#include <QProcess>
#include <QStandardPaths>

#include <algorithm>

namespace platform {

namespace {

constexpr qint64 largestIconFile = 32LL * 1024 * 1024; // bytes

const QString fileManagerService = QStringLiteral("org.freedesktop.FileManager1");

enum class FinalLink
{
    Followed, ///< inside the volume: the host has no link left to follow, and to be misled by
    Itself
};

/// The host's path of the item at a program's path; null when there is nothing.
QString hostPath(const QString &path, FinalLink link)
{
    const bool followsLink = link == FinalLink::Followed;
    const std::string host = Volume::current().hostPath(bytesFromPath(path), followsLink);
    return host.empty() ? QString() : pathFromBytes(host);
}

bool startDetached(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    return process.startDetached();
}

bool openHostItem(const QString &host)
{
    const QString opener = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    return !opener.isEmpty() && startDetached(opener, {host});
}

QIcon iconFromImages(const QList<QImage> &images)
{
    QIcon icon;
    for (const QImage &image : images) {
        const QPixmap pixmap = QPixmap::fromImage(image);
        icon.addPixmap(pixmap);
        icon.addPixmap(pixmap, QIcon::Selected); // not tinted in a selected row
    }
    return icon;
}

/// The desktop's icon for programs, or a plain tile where its theme has none.
QIcon fallbackIcon()
{
    QIcon themed = QIcon::fromTheme(QStringLiteral("application-x-executable"));
    if (!themed.isNull()) {
        return themed;
    }
    QPixmap tile(256, 256);
    tile.fill(Qt::transparent);
    QPainter painter(&tile);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x8a, 0x96, 0xa3));
    painter.drawRoundedRect(QRect(20, 20, 216, 216), 52, 52);
    return QIcon(tile);
}

bool isFileManagerServiceAvailable(const QDBusConnection &bus)
{
    QDBusConnectionInterface *const names = bus.interface();
    return names && (names->isServiceRegistered(fileManagerService).value() ||
                     names->activatableServiceNames().value().contains(fileManagerService));
}

} // namespace

Workspace &Workspace::sharedWorkspace()
{
    static Workspace workspace;
    return workspace;
}

QIcon Workspace::iconForFile(const QString &path) const
{
    const auto bundle = Bundle::bundleWithPath(path);
    const QString iconPath = bundle ? bundle->iconPath() : QString();
    if (iconPath.isNull()) {
        return fallbackIcon();
    }
    const auto bytes = FileManager::defaultManager().contentsAtPath(iconPath, largestIconFile);
    const QIcon icon = bytes ? iconFromImages(iconImages(*bytes)) : QIcon();
    return icon.isNull() ? fallbackIcon() : icon;
}

bool Workspace::openURL(const QUrl &url)
{
    const QString host = hostPath(url.toLocalFile(), FinalLink::Followed);
    return !host.isNull() && openHostItem(host);
}

bool Workspace::selectFile(const QString &path, const QString &)
{
    const QString host = hostPath(path, FinalLink::Itself);
    if (host.isNull()) {
        return false;
    }
    const QString enclosingFolder = QFileInfo(host).path();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !isFileManagerServiceAvailable(bus)) {
        return openHostItem(enclosingFolder);
    }
    QDBusMessage message = QDBusMessage::createMethodCall(
        fileManagerService, QStringLiteral("/org/freedesktop/FileManager1"), fileManagerService,
        QStringLiteral("ShowItems"));
    message << QStringList(QString::fromLatin1(QUrl::fromLocalFile(host).toEncoded())) << QString();
    auto *const watcher = new QDBusPendingCallWatcher(bus.asyncCall(message));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [=] {
        if (watcher->isError()) {
            openHostItem(enclosingFolder);
        }
        watcher->deleteLater();
    });
    return true;
}

bool Workspace::launchApplication(const QString &path)
{
    const auto bundle = Bundle::bundleWithPath(path);
    const QString executable = bundle ? bundle->executablePath() : QString();
    if (executable.isNull()) {
        return false;
    }
    const QString program = hostPath(executable, FinalLink::Followed);
    const QFileInfo programFile(program);
    if (program.isNull() || !programFile.isFile() || !programFile.isExecutable()) {
        return false;
    }
    const QStringList processes =
        Task::outputLines(QStringLiteral("/bin/ps"), {QStringLiteral("-A")});
    // The program's path as a whole argument, also of an interpreter.
    const QString argument = u' ' + program + u' ';
    const bool isRunning =
        std::any_of(processes.begin(), processes.end(),
                    [&](const QString &process) { return (process + u' ').contains(argument); });
    return !isRunning && startDetached(program, {});
}

} // namespace platform
