#pragma once

#include <QString>
#include <QStringList>

namespace platform {

/// What a person needs to know of the current volume and of the user whose library is worked on.
struct VolumeInformation
{
    enum State
    {
        Usable,
        Missing,    ///< nothing is at the host's folder
        Unreadable, ///< it is no folder, or one that may not be listed
        NoLibrary,  ///< the user has no library on the volume
    };

    State state = Usable;
    QString name;             ///< of the host's folder, without those around it; null for "/"
    QString hostFolder;       ///< its whole path
    QString unreadableReason; ///< half a sentence
    QString userName;
    QStringList libraryOwners; ///< the users who have a library; looked for in the state NoLibrary
    bool isReadOnly = false;   ///< the file system of the library, or else of the root

    /// Looks at the volume as it is now.
    static VolumeInformation current();
};

} // namespace platform
