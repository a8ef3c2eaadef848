#pragma once

#include "system/platform/files/FileService.h"

#include <QStringList>

#include <sys/stat.h>

#include <functional>
#include <map>
#include <string>

/// A temporary folder of the host that is a volume, too: paths in it are the same on both. Every
/// user may write in it.
class ScratchFolder
{
public:
    enum class Medium
    {
        Disk,
        Memory
    };

    explicit ScratchFolder(Medium medium = Medium::Disk);
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

private:
    std::string m_path;
    platform::Volume m_volume{"/", "nobody"};
    platform::FileService m_files{m_volume};
};

/// A file system of its own in a folder, for as long as this lives.
class MountedFolder
{
public:
    MountedFolder(std::string path, const std::string &options);
    ~MountedFolder();
    MountedFolder(const MountedFolder &) = delete;
    MountedFolder &operator=(const MountedFolder &) = delete;

    bool isMounted() const { return m_isMounted; }
    bool makeReadOnly() const;

private:
    std::string m_path;
    bool m_isMounted = false;
};

void makeFolder(const std::string &path, unsigned int mode = 0755);
void writeFile(const std::string &path, const std::string &bytes);
void makeLink(const std::string &target, const std::string &path);
void setOwner(const std::string &path, unsigned int user, unsigned int group);
bool isThere(const std::string &path);

/// A folder with items of every kind, names of every sort, and old dates on all of them.
void makeOddTree(const std::string &path);

/// Folders with `files` small files.
void makePlainTree(const std::string &path, int files);

using Snapshot = std::map<std::string, std::string>;

/// Everything worth keeping of an item and of what is below it, by path. Reading it leaves no
/// trace, but for the access times of symbolic links.
Snapshot snapshot(const std::string &path);

/// The first difference of two snapshots, or nothing.
QString difference(const Snapshot &expected, const Snapshot &actual);

/// Runs `work` in another process. Its process id; waitFor() tells whether `work` returned true.
int start(const std::function<bool()> &work);
bool waitFor(int process);

/// Runs `work` in another process of an ordinary user; whether it returned true.
bool isDoneByOrdinaryUser(const std::function<bool()> &work);
