#include "system/platform/VolumeInformation.h"

#include "system/platform/PathEncoding.h"
#include "system/platform/files/FileError.h"
#include "system/platform/files/LibraryOwners.h"
#include "system/platform/files/Volume.h"

#include <QDir>

#include <cerrno>
#include <fcntl.h>
#include <sys/statvfs.h>

namespace platform {

namespace {

bool isOnReadOnlyFileSystem(const Volume &volume, const std::string &path)
{
    const FileDescriptor folder = volume.open(path, O_PATH | O_DIRECTORY);
    struct statvfs status = {};
    return folder.isOpen() && ::fstatvfs(folder.get(), &status) == 0 &&
           (status.f_flag & ST_RDONLY) != 0;
}

} // namespace

VolumeInformation VolumeInformation::current()
{
    const Volume &volume = Volume::current();
    VolumeInformation information;
    information.hostFolder = QDir::cleanPath(QDir(pathFromBytes(volume.root())).absolutePath());
    information.name = volume.isHost() ? QString() : information.hostFolder.section(u'/', -1, -1);
    information.userName = pathFromBytes(volume.userName());

    const FileDescriptor root(::open(volume.root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!root.isOpen()) {
        information.state = errno == ENOENT ? Missing : Unreadable;
        information.unreadableReason = QString::fromStdString(errorReason(errno));
        return information;
    }
    if (!hasLibrary(volume, volume.userName())) {
        information.state = NoLibrary;
        for (const std::string &user : usersWithLibrary(volume)) {
            information.libraryOwners.append(pathFromBytes(user));
        }
    }
    const std::string library = "/users/" + volume.userName() + "/Library";
    information.isReadOnly =
        isOnReadOnlyFileSystem(volume, information.state == NoLibrary ? std::string("/") : library);
    return information;
}

} // namespace platform
