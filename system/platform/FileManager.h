#pragma once

#include "system/platform/files/FileService.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

namespace platform {

/// Why a file operation failed.
struct Error
{
    QString localizedDescription; ///< one line that a person understands
};

/// Stands for NSFileManager: the file service under the program's own paths.
///
/// Every path is absolute on the current volume. All operations are synchronous.
class FileManager
{
public:
    static FileManager &defaultManager();

    /// True when an item of any kind exists at `path`. Links are followed; what cannot be
    /// determined does not exist.
    bool fileExistsAtPath(const QString &path) const;

    /// True when the folder can be read and has at least one entry.
    bool directoryHasContents(const QString &path) const;

    /// Keeps other processes off the item and its backups for as long as `lock` lives. On failure
    /// answers no and sets `error`: another one works on them.
    bool lockItemAtPath(const QString &path, LocationLock &lock, Error *error) const;

    /// Copies a file, or a folder with everything in it, to a path at which nothing exists.
    /// The destination appears whole or not at all. On failure answers no and sets `error`.
    bool copyItemAtPath(const QString &source, const QString &destination, Error *error) const;

    /// Removes a file, or a folder with everything in it. On failure answers no and sets `error`.
    bool removeItemAtPath(const QString &path, Error *error) const;

    /// The modification date of the item itself (a link is not followed), to the millisecond;
    /// invalid when it cannot be read.
    QDateTime modificationDate(const QString &path) const;

    /// The sizes of all items below the folder, added up: megabytes of 1,000,000 bytes, 0 when
    /// nothing can be listed.
    float directorySize(const QString &path) const;

    /// The bytes of the regular file at `path`, links followed inside the volume. Nothing when
    /// it cannot be read or is larger than `limit` bytes.
    std::optional<QByteArray> contentsAtPath(const QString &path, qint64 limit) const;

private:
    FileManager();

    FileService m_service;

    /// Read into again and again: a buffer of its own for each of thousands of property lists
    /// makes malloc(3) tidy the heap up as often, which takes longer than reading them.
    mutable QByteArray m_readBuffer;
};

} // namespace platform
