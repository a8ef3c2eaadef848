#include "system/platform/Workspace.h"

#include "system/platform/Bundle.h"
#include "system/platform/FileManager.h"
#include "system/platform/IconImages.h"
#include "system/platform/PathEncoding.h"
#include "system/platform/Task.h"
#include "system/platform/files/Volume.h"

#include <QCoreApplication>
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
#include <numeric>

namespace platform {

namespace {

constexpr qint64 largestIconFile = 32LL * 1024 * 1024; // bytes
constexpr int mostRecentIcons = 32 * 1024;             // KiB of images: the rows of a large screen

const QString fileManagerService = QStringLiteral("org.freedesktop.FileManager1");

enum class FinalLink
{
    Followed, ///< inside the volume: the host has no link left to follow, and to be misled by
    Itself
};

/// The host's path of the item at a program's path; empty when there is nothing.
std::string hostPath(const QString &path, FinalLink link)
{
    return Volume::current().hostPath(bytesFromPath(path), link == FinalLink::Followed);
}

/// The URL of a file of the host. It holds each byte of the path, in whatever encoding.
QString fileUrl(const std::string &host)
{
    return QStringLiteral("file://") +
           QString::fromLatin1(QByteArray::fromStdString(host).toPercentEncoding("/"));
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

bool openHostItem(const std::string &host)
{
    const QString opener = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    // An argument of a process is text to Qt.
    const QString path = pathFromBytes(host);
    const bool isText = path.toUtf8().toStdString() == host;
    return !opener.isEmpty() && startDetached(opener, {isText ? path : fileUrl(host)});
}

QList<QImage> imagesOfFirstFile(const QStringList &paths)
{
    for (const QString &path : paths) {
        if (const auto bytes =
                FileManager::defaultManager().contentsAtPath(path, largestIconFile)) {
            return iconImages(*bytes);
        }
    }
    return {};
}

int kibibytes(const QList<QImage> &images)
{
    return int(std::accumulate(
        images.begin(), images.end(), qint64(0),
        [](qint64 sum, const QImage &image) { return sum + image.sizeInBytes() / 1024; }));
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

Workspace::Workspace() : m_recentIcons(mostRecentIcons)
{
    // Images do not outlive the application.
    qAddPostRoutine([] { sharedWorkspace().m_recentIcons.clear(); });
}

QIcon Workspace::iconForFile(const QString &path)
{
    if (const QIcon *const recent = m_recentIcons.object(path)) {
        return *recent;
    }
    const auto bundle = Bundle::bundleWithPath(path);
    const QList<QImage> images = bundle ? imagesOfFirstFile(bundle->iconPaths()) : QList<QImage>();
    QIcon icon = images.isEmpty() ? fallbackIcon() : iconFromImages(images);
    m_recentIcons.insert(path, new QIcon(icon), qMax(kibibytes(images), 1));
    return icon;
}

bool Workspace::openURL(const QUrl &url)
{
    const std::string host = hostPath(url.toLocalFile(), FinalLink::Followed);
    return !host.empty() && openHostItem(host);
}

bool Workspace::selectFile(const QString &path, const QString &)
{
    const std::string host = hostPath(path, FinalLink::Itself);
    if (host.empty()) {
        return false;
    }
    const std::string enclosingFolder = host.substr(0, std::max<std::size_t>(host.rfind('/'), 1));
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !isFileManagerServiceAvailable(bus)) {
        return openHostItem(enclosingFolder);
    }
    QDBusMessage message = QDBusMessage::createMethodCall(
        fileManagerService, QStringLiteral("/org/freedesktop/FileManager1"), fileManagerService,
        QStringLiteral("ShowItems"));
    message << QStringList(fileUrl(host)) << QString();
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
    const QString program = pathFromBytes(hostPath(executable, FinalLink::Followed));
    const QFileInfo programFile(program);
    if (program.isEmpty() || !programFile.isFile() || !programFile.isExecutable()) {
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
