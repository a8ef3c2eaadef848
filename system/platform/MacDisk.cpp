#include "system/platform/MacDisk.h"

#include "system/platform/PathEncoding.h"
#include "system/platform/files/FoldedName.h"
#include "system/platform/files/LibraryOwners.h"
#include "system/platform/files/Volume.h"

#include <QDir>
#include <QSet>
#include <QStorageInfo>

#include <fcntl.h>
#include <mntent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

namespace platform {

namespace {

MacDisk::Access accessTo(const std::string &hostPath)
{
    if (::access(hostPath.c_str(), W_OK) == 0) {
        return MacDisk::Access::ReadAndWrite;
    }
    return errno == EROFS ? MacDisk::Access::ReadOnly : MacDisk::Access::Denied;
}

bool hasFolder(const Volume &volume, const char *path)
{
    return volume.open(path, O_PATH | O_DIRECTORY).isOpen();
}

QString missingParts(const Volume &volume)
{
    if (volume.isHost()) {
        return QStringLiteral("it is the disk of this computer itself");
    }
    return hasFolder(volume, "/Users")
               ? QStringLiteral("nobody in its “Users” folder has a “Library” folder that you may "
                                "read")
               : QStringLiteral("it has no “Users” folder");
}

bool isRemote(std::string_view type)
{
    constexpr std::array types = {"nfs",  "nfs4",   "cifs",       "smb3",       "afs",
                                  "ceph", "autofs", "fuse.sshfs", "fuse.rclone"};
    return std::find(types.begin(), types.end(), type) != types.end();
}

QStringList mountPoints()
{
    const std::unique_ptr<FILE, decltype(&::endmntent)> table(
        ::setmntent("/proc/self/mounts", "re"), &::endmntent);
    QStringList points;
    std::array<char, 16384> buffer; // two paths and the options
    mntent entry = {};
    while (table && ::getmntent_r(table.get(), &entry, buffer.data(), int(buffer.size()))) {
        if (!isRemote(entry.mnt_type)) {
            points.append(pathFromBytes(entry.mnt_dir));
        }
    }
    points.sort();
    return points;
}

} // namespace

std::optional<MacDisk> MacDisk::at(const QString &folder, QString *problem)
{
    const auto refuse = [&](const QString &text) {
        if (problem) {
            *problem = text.arg(u'“' + folder + u'”');
        }
        return std::nullopt;
    };
    const QString path = QDir::cleanPath(QDir::current().absoluteFilePath(folder));
    const std::string root = bytesFromPath(path);
    struct stat status = {};
    const bool isThere = ::stat(root.c_str(), &status) == 0;
    if (isThere && !S_ISDIR(status.st_mode)) {
        return refuse(QStringLiteral("%1 is not a folder."));
    }
    if (!isThere || ::access(root.c_str(), R_OK | X_OK) != 0) {
        return refuse(QStringLiteral("%1 cannot be opened: ") +
                      QString::fromLocal8Bit(std::strerror(errno)) + u'.');
    }
    const Volume volume(root, {});
    MacDisk disk;
    disk.m_path = path;
    for (const std::string &user : usersWithLibrary(volume)) {
        const std::string library = volume.hostPath("/users/" + user + "/Library", true);
        disk.m_users.append({pathFromBytes(user), accessTo(library)});
    }
    const bool holdsApplications = !volume.isHost() && hasFolder(volume, "/Applications") &&
                                   (hasFolder(volume, "/Library") || hasFolder(volume, "/System"));
    if (disk.m_users.isEmpty() && !holdsApplications) {
        return refuse(QStringLiteral("%1 does not look like a Mac's disk: ") +
                      missingParts(volume) + u'.');
    }
    return disk;
}

QList<MacDisk> MacDisk::mounted()
{
    QList<MacDisk> disks;
    QSet<QPair<dev_t, ino_t>> roots;
    for (const QString &point : mountPoints()) {
        // The other volume of a disk that comes before it in the order of paths.
        const QString data = QStringLiteral("/System/Volumes/Data");
        const bool isPart = std::any_of(disks.begin(), disks.end(), [&](const MacDisk &disk) {
            return point == disk.path() + data;
        });
        const auto disk = isPart ? std::nullopt : at(point);
        struct stat status = {};
        if (!disk || ::stat(bytesFromPath(point).c_str(), &status) != 0 ||
            roots.contains({status.st_dev, status.st_ino})) {
            continue;
        }
        roots.insert({status.st_dev, status.st_ino});
        disks.append(*disk);
    }
    return disks;
}

QString MacDisk::name() const
{
    const QString last = m_path.section(u'/', -1);
    return last.isEmpty() ? m_path : last;
}

std::optional<MacDisk::User> MacDisk::user(const QString &name) const
{
    const FoldedName folded(bytesFromPath(name));
    for (const User &user : m_users) {
        if (folded.isSameAs(bytesFromPath(user.name))) {
            return user;
        }
    }
    return std::nullopt;
}

std::optional<qint64> MacDisk::size() const
{
    const QStorageInfo storage(m_path);
    return storage.rootPath() == m_path ? std::optional(storage.bytesTotal()) : std::nullopt;
}

} // namespace platform
