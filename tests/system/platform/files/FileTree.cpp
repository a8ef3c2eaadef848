#include "tests/system/platform/files/FileTree.h"

#include <QCryptographicHash>
#include <QFile>
#include <QProcess>

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

constexpr unsigned int ordinaryUser = 65534;

std::string time(const timespec &value)
{
    return std::to_string(value.tv_sec) + '.' + std::to_string(value.tv_nsec);
}

std::string contentOf(int descriptor)
{
    QFile file;
    QCryptographicHash hash(QCryptographicHash::Sha1);
    if (!file.open(descriptor, QIODevice::ReadOnly) || !hash.addData(&file)) {
        return "unreadable";
    }
    return hash.result().toHex().toStdString();
}

std::string attributesOf(int item)
{
    std::array<char, 4096> names;
    const ssize_t length = ::flistxattr(item, names.data(), names.size());
    std::map<std::string, std::string> attributes;
    for (const char *name = names.data(); name < names.data() + length; name += strlen(name) + 1) {
        std::array<char, 4096> value;
        const ssize_t size = ::fgetxattr(item, name, value.data(), value.size());
        attributes[name].assign(value.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    }
    std::string text;
    for (const auto &[name, value] : attributes) {
        text += name + '=' + value + ' ';
    }
    return text;
}

void addItem(int parent, const std::string &name, const std::string &path, Snapshot &items,
             std::map<std::string, ino_t> &inodes)
{
    struct stat status = {};
    if (::fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return;
    }
    const bool isFolder = S_ISDIR(status.st_mode);
    const bool hasHoles = !isFolder && status.st_blocks * 512 < status.st_size / 2;
    std::string text;
    for (const std::string &field :
         {std::to_string(status.st_mode), std::to_string(status.st_uid),
          std::to_string(status.st_gid), std::to_string(status.st_rdev),
          isFolder ? "-" : std::to_string(status.st_size), std::to_string(hasHoles),
          time(status.st_atim), time(status.st_mtim)}) {
        text += field + ' ';
    }
    inodes[path] = status.st_ino;
    if (S_ISLNK(status.st_mode)) {
        std::array<char, 4096> target;
        const ssize_t length = ::readlinkat(parent, name.c_str(), target.data(), target.size());
        text.append(target.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    } else if (S_ISREG(status.st_mode) || isFolder) {
        int item = ::openat(parent, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NOATIME);
        if (item < 0) {
            item = ::openat(parent, name.c_str(), O_RDONLY | O_NOFOLLOW);
        }
        text += attributesOf(item) + (isFolder ? std::string() : contentOf(item));
        if (DIR *folder = isFolder && item >= 0 ? ::fdopendir(item) : nullptr) {
            while (const dirent *entry = ::readdir(folder)) {
                const std::string child = entry->d_name;
                if (child != "." && child != "..") {
                    addItem(item, child, path + '/' + child, items, inodes);
                }
            }
            ::closedir(folder);
        } else {
            ::close(item);
        }
    }
    items[path] = text;
}

// Old dates everywhere, so that the system would note every access.
void setOldDates(const std::string &path)
{
    for (const auto &[name, text] : snapshot(path)) {
        const long long order = static_cast<long long>(std::hash<std::string>()(name) % 100000);
        const timespec dates[] = {{1'000'000'000 + order, 123'456'789},
                                  {1'000'200'000 + order, 987'654'321}};
        ::utimensat(AT_FDCWD, (path + name).c_str(), dates, AT_SYMLINK_NOFOLLOW);
    }
}

QString description(const std::optional<platform::FileError> &error)
{
    return error ? QString::fromStdString(error->description()) : QString();
}

} // namespace

ScratchFolder::ScratchFolder(Medium medium)
{
    const char *temporary = std::getenv("TMPDIR");
    std::string pattern = medium == Medium::Memory && ::access("/dev/shm", W_OK) == 0 ? "/dev/shm"
                          : temporary != nullptr                                      ? temporary
                                                                                      : "/tmp";
    pattern += "/tarnwell-test-XXXXXX";
    m_path = ::mkdtemp(pattern.data());
    ::chmod(m_path.c_str(), 0777);
}

ScratchFolder::~ScratchFolder()
{
    QProcess::execute("chmod", {"-R", "u+rwx", QString::fromStdString(m_path)});
    QProcess::execute("rm", {"-rf", "--one-file-system", QString::fromStdString(m_path)});
}

QStringList ScratchFolder::names(const std::string &folder) const
{
    QStringList names;
    for (const std::string &name :
         m_files.contents(path(folder)).value_or(std::vector<std::string>())) {
        names.append(QString::fromStdString(name));
    }
    names.sort();
    return names;
}

QString ScratchFolder::copy(const std::string &source, const std::string &destination) const
{
    return description(m_files.copy(path(source), path(destination)));
}

QString ScratchFolder::remove(const std::string &name) const
{
    return description(m_files.remove(path(name)));
}

MountedFolder::MountedFolder(std::string path, const std::string &options) : m_path(std::move(path))
{
    makeFolder(m_path);
    m_isMounted = ::mount("none", m_path.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

MountedFolder::~MountedFolder()
{
    if (m_isMounted) {
        ::umount2(m_path.c_str(), MNT_DETACH);
    }
}

bool MountedFolder::makeReadOnly() const
{
    return ::mount(nullptr, m_path.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

void makeFolder(const std::string &path, unsigned int mode)
{
    ::mkdir(path.c_str(), 0700);
    ::chmod(path.c_str(), mode);
}

void writeFile(const std::string &path, const std::string &bytes)
{
    const platform::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
    if (::write(file.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        qFatal("Cannot write %s", path.c_str());
    }
}

void makeLink(const std::string &target, const std::string &path)
{
    std::filesystem::create_symlink(target, path);
}

void setOwner(const std::string &path, unsigned int user, unsigned int group)
{
    if (::lchown(path.c_str(), user, group) != 0) {
        qFatal("Cannot change the owner of %s", path.c_str());
    }
}

bool isThere(const std::string &path)
{
    return std::filesystem::exists(std::filesystem::symlink_status(path));
}

void makeOddTree(const std::string &path)
{
    makeFolder(path, 0750);
    makeFolder(path + "/empty", 01777);
    for (const char *name : {"with space",
                             "Gr\xf6\xdf"
                             "e.plist",
                             "line\nbreak", "-rf", "\xff\xfe"}) {
        writeFile(path + '/' + name, name);
    }
    writeFile(path + '/' + std::string(255, 'n'), "a long name");
    writeFile(path + "/large", std::string(3'000'001, 'x'));
    writeFile(path + "/secret", "for me alone");
    ::setxattr((path + "/secret").c_str(), "user.note", "mine", 4, 0);
    QProcess::execute("setfacl", {"-m", "u:1234:r", QString::fromStdString(path + "/secret")});
    ::chmod((path + "/secret").c_str(), 0440); // nobody may write to it, its owner included
    writeFile(path + "/program", "#!");
    ::chmod((path + "/program").c_str(), 06755);
    makeLink("program", path + "/link");
    makeLink("/nowhere/at all", path + "/dangling");
    makeLink("empty", path + "/link to a folder");
    ::mkfifo((path + "/pipe").c_str(), 0620);
    ::mknod((path + "/socket").c_str(), S_IFSOCK | 0640, 0);
    std::filesystem::create_hard_link(path + "/pipe", path + "/empty/pipe too");
    if (::geteuid() == 0) {
        ::mknod((path + "/device").c_str(), S_IFCHR | 0600, makedev(1, 3));
        setOwner(path + "/link", 1234, 5678);
        setOwner(path + "/with space", 1234, 5678);
        setOwner(path + "/program", 1234, 0);
        ::chmod((path + "/program").c_str(), 06755);
    }

    const std::string sparse = path + "/sparse";
    writeFile(sparse, "start");
    std::filesystem::resize_file(sparse, 30 << 20);
    std::ofstream(sparse, std::ios::app) << "middle";
    std::filesystem::resize_file(sparse, 64 << 20);

    // Folders that may not be written, with linked items and attributes in them.
    makeFolder(path + "/closed");
    makeFolder(path + "/closed/inner");
    writeFile(path + "/closed/inner/one", "linked");
    std::filesystem::create_hard_link(path + "/closed/inner/one", path + "/another");
    std::filesystem::create_hard_link(path + "/closed/inner/one", path + "/third");
    ::setxattr((path + "/another").c_str(), "user.color", "green", 5, 0);
    ::setxattr((path + "/closed/inner").c_str(), "user.tag", "\0\1", 2, 0);
    const QString host = QString::fromStdString(path);
    QProcess::execute("setfacl", {"-m", "u:1234:r,g:5678:rwx", host + "/large", host + "/empty"});
    QProcess::execute("setfacl",
                      {"-d", "-m", "u:4321:rx", host + "/closed/inner", host + "/empty"});
    ::chmod((path + "/closed/inner").c_str(), 0555);
    ::chmod((path + "/closed").c_str(), 02500);

    makeFolder(path + "/many");
    for (int i = 0; i < 3000; ++i) {
        writeFile(path + "/many/" + std::to_string(i),
                  std::string(static_cast<std::size_t>(i), 'm'));
    }
    setOldDates(path);
}

void makePlainTree(const std::string &path, int files)
{
    makeFolder(path);
    for (int i = 0; i < files; ++i) {
        const std::string folder = path + '/' + std::to_string(i / 50);
        if (i % 50 == 0) {
            makeFolder(folder);
        }
        writeFile(folder + '/' + std::to_string(i), std::string(static_cast<std::size_t>(i), 'p'));
    }
}

Snapshot snapshot(const std::string &path)
{
    Snapshot items;
    std::map<std::string, ino_t> inodes;
    addItem(AT_FDCWD, path, "", items, inodes);
    std::map<ino_t, std::string> firstNames;
    for (const auto &[name, inode] : inodes) {
        items[name] += " is " + firstNames.try_emplace(inode, name).first->second;
    }
    return items;
}

QString difference(const Snapshot &expected, const Snapshot &actual)
{
    for (const auto &[path, text] : expected) {
        const auto found = actual.find(path);
        const std::string other = found != actual.end() ? found->second : "missing";
        if (other != text) {
            return QString::fromStdString('"' + path + "\" was " + text + ", is " + other);
        }
    }
    for (const auto &[path, text] : actual) {
        if (!expected.contains(path)) {
            return QString::fromStdString("too much: " + path);
        }
    }
    return {};
}

int start(const std::function<bool()> &work)
{
    const int process = ::fork();
    if (process == 0) {
        ::_exit(work() ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    return process;
}

bool waitFor(int process)
{
    int status = 0;
    return ::waitpid(process, &status, 0) == process && WIFEXITED(status) &&
           WEXITSTATUS(status) == EXIT_SUCCESS;
}

bool isDoneByOrdinaryUser(const std::function<bool()> &work)
{
    return waitFor(start([&work] {
        const bool isOrdinary =
            ::geteuid() != 0 || (::setgid(ordinaryUser) == 0 && ::setuid(ordinaryUser) == 0);
        return isOrdinary && work();
    }));
}
