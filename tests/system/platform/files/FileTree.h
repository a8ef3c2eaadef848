#pragma once

#include "system/platform/files/FileService.h"

#include <QSet>
#include <QStringList>

#include <sys/stat.h>

#include <functional>
#include <string>

/// A temporary folder of the host that is a volume, too: paths in it are the same on both. Every
/// user may write in it.
class ScratchFolder
{
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder &) = delete;
    ScratchFolder &operator=(const ScratchFolder &) = delete;

    const std::string &path() const { return m_path; }
    std::string path(const std::string &name) const { return m_path + '/' + name; }
    const platform::FileService &files() const { return m_files; }

    /// The names of the direct entries, sorted.
    QStringList names(const std::string &folder = ".") const;

    /// Copies an item of this folder into it, or removes one; the error, or nothing.
    QString copy(const std::string &source, const std::string &destination) const;
    QString remove(const std::string &name) const;

    /// Runs a shell script in it; whether that succeeded. What it mounts there goes with the
    /// folder.
    bool run(const std::string &script) const;

private:
    std::string m_path;
    platform::Volume m_volume{"/", "nobody"};
    platform::FileService m_files{m_volume};
};

/// Makes a folder and those that it lies in, or sets its mode.
void makeFolder(const std::string &path, unsigned int mode = 0755);
void writeFile(const std::string &path, const std::string &bytes);
struct stat statusOf(const std::string &path);
bool isThere(const std::string &path);

/// A folder with items of every kind, names of every sort, and old dates.
void makeOddTree(const std::string &path);

/// Folders with `files` small files.
void makePlainTree(const std::string &path, int files);

/// Everything worth keeping of an item and of what is below it, a text for each.
using Snapshot = QSet<QByteArray>;
Snapshot snapshot(const std::string &path);

/// In what two snapshots differ, or nothing.
QString difference(const Snapshot &expected, const Snapshot &actual);

/// Runs `work` in another process; whether it returned true.
bool isDoneElsewhere(const std::function<bool()> &work);

/// The same for a process of an ordinary user, who is also in the group 5678.
bool isDoneByOrdinaryUser(const std::function<bool()> &work);
