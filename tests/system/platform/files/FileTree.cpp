#include "tests/system/platform/files/FileTree.h"

#include <QDir>
#include <QProcess>

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>

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
    std::string pattern = std::filesystem::temp_directory_path() / "tarnwell-test-XXXXXX";
    m_path = ::mkdtemp(pattern.data());
    ::chmod(m_path.c_str(), 0777);
}

ScratchFolder::~ScratchFolder()
{
    run("grep -o \" $PWD/[^ ]*\" /proc/mounts | xargs -r umount -l\n"
        "chmod -R u+rwx . && rm -rf --one-file-system \"$PWD\"");
}

QStringList ScratchFolder::names(const std::string &folder) const
{
    return QDir(QString::fromStdString(path(folder)))
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
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

void makeOddTree(const std::string &path)
{
    // The names of the many attributes alone take more than a kibibyte.
    runScript("trees.make_tree(root, os.geteuid() == 0)\n"
              "for i in range(40):\n"
              "    trees.Maker(root).attribute(b'attributes/list', f'user.{i:40}', b'x')\n",
              path);
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
    const QByteArrayList items =
        runScript("for path, item in trees.snapshot(root).items():\n"
                  "    content = hashlib.sha1(repr(item.pop('content')).encode()).hexdigest()\n"
                  "    item['attributes'] = sorted(item['attributes'].items())\n"
                  "    print(path, [content, *item.values()], sep='\\t')\n",
                  path)
            .trimmed()
            .split('\n');
    return {items.begin(), items.end()};
}

QString difference(const Snapshot &expected, const Snapshot &actual)
{
    const QByteArrayList missing = (expected - actual).values();
    const QByteArrayList added = (actual - expected).values();
    return missing == added ? QString() : missing.join('\n') + "\nis now\n" + added.join('\n');
}

bool isDoneElsewhere(const std::function<bool()> &work)
{
    const int process = ::fork();
    if (process == 0) {
        ::_exit(work() ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = 0;
    return ::waitpid(process, &status, 0) == process && WIFEXITED(status) &&
           WEXITSTATUS(status) == EXIT_SUCCESS;
}

bool isDoneByOrdinaryUser(const std::function<bool()> &work)
{
    return isDoneElsewhere([&work] {
        const bool isOrdinary =
            ::geteuid() != 0 || (::setgroups(1, &furtherGroup) == 0 &&
                                 ::setgid(ordinaryUser) == 0 && ::setuid(ordinaryUser) == 0);
        return isOrdinary && work();
    });
}
