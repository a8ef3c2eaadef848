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

    /// Runs a shell script in it; whether that succeeded.
    bool run(const std::string &script) const;

    /// Mounts one of its folders at another place in it, for as long as this lives.
    bool mount(const std::string &folder, const std::string &place);

private:
    std::string m_path;
    std::string m_mountPoint;
    platform::Volume m_volume{"/", "nobody"};
    platform::FileService m_files{m_volume};
};

/// Makes a folder and those that it lies in, or sets its mode.
void makeFolder(const std::string &path, unsigned int mode = 0755);
void writeFile(const std::string &path, const std::string &bytes);
void makeLink(const std::string &target, const std::string &path);
void setOwner(const std::string &path, unsigned int user, unsigned int group);
struct stat statusOf(const std::string &path);
bool isThere(const std::string &path);

/// Runs a command of the host with a path as its last argument; whether it succeeded.
bool runOn(const std::string &path, const QString &command, QStringList arguments);

/// A folder with items of every kind, names of every sort, and old dates.
void makeOddTree(const std::string &path);

/// Folders with `files` small files.
void makePlainTree(const std::string &path, int files);

/// Everything worth keeping of an item and of what is below it, by path.
using Snapshot = std::map<QByteArray, QByteArray>;
Snapshot snapshot(const std::string &path);

/// The first difference of two snapshots, or nothing.
QString difference(const Snapshot &expected, const Snapshot &actual);

/// Runs `work` in another process. Its process id; waitFor() tells whether `work` returned true.
int start(const std::function<bool()> &work);
bool waitFor(int process);

/// Runs `work` in another process of an ordinary user, who is also in the group 5678; whether it
/// returned true.
bool isDoneByOrdinaryUser(const std::function<bool()> &work);
