#include "tests/system/platform/files/FileTree.h"

#include <QProcess>
#include <QTest>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/xattr.h>

#include <filesystem>
#include <fstream>

/// What copies keep.
class CopyTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wholeTree();
    void singleItems();
    void otherDisk();
    void holesOfLargeFile();
    void deepTree();
    void foreignOwner();

private:
    static void setDefaultAccessList(const std::string &folder)
    {
        QProcess::execute("setfacl", {"-d", "-m", "u:999:rwx", QString::fromStdString(folder)});
    }

    /// Copies what lies in the tree at a name, or the tree itself, to a path; the error, or
    /// nothing.
    QString copyOriginal(const std::string &destination, const std::string &name = {}) const
    {
        const auto error = m_source.files().copy(m_source.path("tree" + name), destination);
        return error ? QString::fromStdString(error->description()) : QString();
    }

    ScratchFolder m_source;
    Snapshot m_tree;
};

void CopyTest::initTestCase()
{
    makeOddTree(m_source.path("tree"));
    snapshot(m_source.path("tree")); // from now on no link is read for the first time
    m_tree = snapshot(m_source.path("tree"));
    QVERIFY(m_tree.size() > 3020);
}

void CopyTest::wholeTree()
{
    // Where others, or even the owner, get no access to new items, and where these inherit a group
    // and an access list.
    const std::pair<mode_t, bool> places[] = {
        {022, false}, {077, false}, {0777, false}, {022, true}};
    for (const auto &[mask, inherits] : places) {
        const ScratchFolder scratch;
        makeFolder(scratch.path("backup"));
        if (inherits) {
            setDefaultAccessList(scratch.path("backup"));
            if (::geteuid() == 0) {
                setOwner(scratch.path("backup"), 0, 100);
            }
            ::chmod(scratch.path("backup").c_str(), 02755);
        }
        const mode_t oldMask = ::umask(mask);
        const QString error = copyOriginal(scratch.path("backup/copy"));
        ::umask(oldMask);
        QCOMPARE(error, "");
        QCOMPARE(difference(m_tree, snapshot(scratch.path("backup/copy"))), QString());
        QCOMPARE(difference(m_tree, snapshot(m_source.path("tree"))), QString());
        QCOMPARE(scratch.names("backup"), QStringList({"copy"}));
    }
}

void CopyTest::singleItems()
{
    for (const QString &name :
         {QString("line\nbreak"), QString("large"), QString("secret"), QString("program"),
          QString("dangling"), QString("link to a folder"), QString("pipe"), QString("socket"),
          QString("sparse"), QString("empty"), QString("closed"), QString("another"),
          QString(255, 'n')}) {
        const std::string item = '/' + name.toStdString();
        const Snapshot before = snapshot(m_source.path("tree" + item));
        const ScratchFolder scratch;
        setDefaultAccessList(scratch.path());
        QCOMPARE(copyOriginal(scratch.path() + item, item), "");
        QCOMPARE(difference(before, snapshot(scratch.path() + item)), QString());
        QCOMPARE(scratch.names(), QStringList({name}));
    }
    // A slash at its end does not lead behind a link.
    const Snapshot link = snapshot(m_source.path("tree/link to a folder"));
    const ScratchFolder scratch;
    QCOMPARE(copyOriginal(scratch.path("link"), "/link to a folder/"), "");
    QCOMPARE(difference(link, snapshot(scratch.path("link"))), QString());
}

void CopyTest::otherDisk()
{
    const ScratchFolder scratch;
    const MountedFolder disk(scratch.path("disk"), "size=64m");
    if (!disk.isMounted()) {
        QSKIP("only root may mount a file system");
    }
    writeFile(scratch.path("disk/probe"), "");
    if (::setxattr(scratch.path("disk/probe").c_str(), "user.probe", "1", 1, 0) != 0) {
        QSKIP("this system's tmpfs has no extended attributes");
    }
    QCOMPARE(copyOriginal(scratch.path("disk/copy")), "");
    QCOMPARE(difference(m_tree, snapshot(scratch.path("disk/copy"))), QString());
}

void CopyTest::holesOfLargeFile()
{
    const ScratchFolder scratch;
    const std::string source = scratch.path("source");
    writeFile(source, std::string(4096, 'a'));
    std::filesystem::resize_file(source, 700 << 20);
    std::ofstream(source, std::ios::app) << std::string(4096, 'b');
    std::filesystem::resize_file(source, 1 << 30);
    const Snapshot before = snapshot(source);
    QCOMPARE(scratch.copy("source", "copy"), "");
    QCOMPARE(difference(before, snapshot(scratch.path("copy"))), QString());
    struct stat status = {};
    QCOMPARE(::stat(scratch.path("copy").c_str(), &status), 0);
    QVERIFY2(status.st_blocks <= 64, qPrintable(QString::number(status.st_blocks)));
}

void CopyTest::deepTree()
{
    constexpr int levels = 1500;
    const ScratchFolder scratch;
    const std::string name(100, 'd');
    makeFolder(scratch.path("source"));
    std::string deepest;
    platform::FileDescriptor folder(::open(scratch.path("source").c_str(), O_RDONLY | O_DIRECTORY));
    for (int i = 0; i < levels; ++i) {
        QCOMPARE(::mkdirat(folder.get(), name.c_str(), 0755), 0);
        folder =
            platform::FileDescriptor(::openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY));
        const platform::FileDescriptor file(
            ::openat(folder.get(), "file", O_WRONLY | O_CREAT, 0644));
        QCOMPARE(::write(file.get(), "12345", 5), 5);
        deepest += name + '/';
    }
    folder.reset();
    deepest += "file";

    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit few = {50, limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
    const QString copyError = scratch.copy("source", "copy");
    const std::uint64_t sourceSize = scratch.files().totalSize(scratch.path("source"));
    const std::uint64_t copySize = scratch.files().totalSize(scratch.path("copy"));
    const auto attributes = scratch.files().attributes(scratch.path("copy/" + deepest));
    QString deepestErrors = scratch.copy("copy/" + deepest, "copy/" + deepest + '2');
    deepestErrors += scratch.remove("copy/" + deepest);
    const bool isDeepestThere = scratch.files().exists(scratch.path("copy/" + deepest));
    const bool isOtherThere = scratch.files().exists(scratch.path("copy/" + deepest + '2'));
    const QString removalErrors = scratch.remove("copy") + scratch.remove("source");
    ::setrlimit(RLIMIT_NOFILE, &limit);

    QCOMPARE(copyError, "");
    QVERIFY(attributes && attributes->size == 5);
    QVERIFY(sourceSize >= levels * 5U);
    QCOMPARE(copySize, sourceSize);
    QCOMPARE(deepestErrors + removalErrors, "");
    QVERIFY(isOtherThere && !isDeepestThere);
    QCOMPARE(scratch.names(), QStringList());
}

// An ordinary user cannot keep another owner, and then may not pass on that one's privileges.
void CopyTest::foreignOwner()
{
    if (::geteuid() != 0) {
        QSKIP("only root can make files of another owner");
    }
    const ScratchFolder scratch;
    makeFolder(scratch.path("source"));
    writeFile(scratch.path("source/program"), "#!");
    ::chmod(scratch.path("source/program").c_str(), 06755);
    QVERIFY(isDoneByOrdinaryUser([&scratch] { return scratch.copy("source", "copy").isEmpty(); }));
    struct stat status = {};
    QCOMPARE(::stat(scratch.path("copy/program").c_str(), &status), 0);
    QCOMPARE(status.st_mode & 07777U, 0755U);
    QVERIFY(status.st_uid != 0);
}

QTEST_GUILESS_MAIN(CopyTest)

#include "CopyTest.moc"
