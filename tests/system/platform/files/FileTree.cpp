#include "tests/system/platform/files/FileTree.h"

#include <QFile>
#include <QProcess>

#include <fcntl.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <cstdlib>
#include <filesystem>

namespace {

constexpr unsigned int ordinaryUser = 65534;
constexpr gid_t furtherGroup = 5678;

// The trees of the tests on real disks. Read by whoever starts the test: an ordinary user may not.
const QByteArray trees = [] {
    QFile file(DISK_TESTS "/trees.py");
    file.open(QIODevice::ReadOnly);
    return file.readAll();
}();

// Runs a script that knows these trees; what it prints.
QByteArray runScript(const char *script, const std::string &path)
{
    QProcess python;
    python.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    python.start("/usr/bin/python3",
                 {"-B", "-c",
                  QString("import hashlib, os, sys, types\n"
                          "trees = types.ModuleType('trees')\nexec(sys.argv[1], vars(trees))\n"
                          "root = os.fsencode(sys.argv[2])\n") +
                      script,
                  QString::fromUtf8(trees), QString::fromStdString(path)});
    if (!python.waitForFinished(-1) || python.exitCode() != 0) {
        qFatal("A script on %s fails", path.c_str());
    }
    return python.readAllStandardOutput();
}

QString description(const std::optional<platform::FileError> &error)
{
    return error ? QString::fromStdString(error->description()) : QString();
}

} // namespace

ScratchFolder::ScratchFolder()
{
    const char *temporary = std::getenv("TMPDIR");
    std::string pattern = std::string(temporary != nullptr ? temporary : "/tmp");
    pattern += "/tarnwell-test-XXXXXX";
    m_path = ::mkdtemp(pattern.data());
    ::chmod(m_path.c_str(), 0777);
}

ScratchFolder::~ScratchFolder()
{
    ::umount2(m_mountPoint.c_str(), MNT_DETACH);
    runOn(m_path, "chmod", {"-R", "u+rwx"});
    runOn(m_path, "rm", {"-rf", "--one-file-system"});
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

bool ScratchFolder::run(const std::string &script) const
{
    return QProcess::execute("/bin/bash", {"-ec", "cd \"$0\"\n" + QString::fromStdString(script),
                                           QString::fromStdString(m_path)}) == 0;
}

bool ScratchFolder::mount(const std::string &folder, const std::string &place)
{
    makeFolder(path(place));
    m_mountPoint = path(place);
    return ::mount(path(folder).c_str(), m_mountPoint.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

void makeFolder(const std::string &path, unsigned int mode)
{
    std::filesystem::create_directories(path);
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

struct stat statusOf(const std::string &path)
{
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0) {
        qFatal("There is no %s", path.c_str());
    }
    return status;
}

bool isThere(const std::string &path)
{
    return std::filesystem::exists(std::filesystem::symlink_status(path));
}

bool runOn(const std::string &path, const QString &command, QStringList arguments)
{
    return QProcess::execute(command, arguments << QString::fromStdString(path)) == 0;
}

void makeOddTree(const std::string &path)
{
    runScript("trees.make_tree(root, os.geteuid() == 0)", path);
    // The names alone take more than a kibibyte.
    for (int i = 0; i < 40; ++i) {
        const std::string name = "user.many attributes with long names " + std::to_string(i);
        ::setxattr((path + "/attributes/list").c_str(), name.c_str(), "x", 1, 0);
    }
}

void makePlainTree(const std::string &path, int files)
{
    for (int i = 0; i < files; ++i) {
        const std::string folder = path + '/' + std::to_string(i / 50);
        makeFolder(folder);
        writeFile(folder + '/' + std::to_string(i), std::string(static_cast<std::size_t>(i), 'p'));
    }
}

Snapshot snapshot(const std::string &path)
{
    const QByteArray items =
        runScript("for path, item in trees.snapshot(root).items():\n"
                  "    content = hashlib.sha1(repr(item.pop('content')).encode()).hexdigest()\n"
                  "    item['attributes'] = sorted(item['attributes'].items())\n"
                  "    print(path, [content, *item.values()], sep='\\t')\n",
                  path);
    Snapshot result;
    for (const QByteArray &line : items.trimmed().split('\n')) {
        const qsizetype tab = line.indexOf('\t');
        result[line.first(tab)] = line.sliced(tab);
    }
    return result;
}

QString difference(const Snapshot &expected, const Snapshot &actual)
{
    for (const auto &[path, text] : expected) {
        const auto found = actual.find(path);
        const QByteArray other = found != actual.end() ? found->second : "missing";
        if (other != text) {
            return path + " was " + text + ", is " + other;
        }
    }
    for (const auto &[path, text] : actual) {
        if (!expected.contains(path)) {
            return "too much: " + path;
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
            ::geteuid() != 0 || (::setgroups(1, &furtherGroup) == 0 &&
                                 ::setgid(ordinaryUser) == 0 && ::setuid(ordinaryUser) == 0);
        return isOrdinary && work();
    }));
}
