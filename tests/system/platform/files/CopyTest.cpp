#include "tests/system/platform/files/FileTree.h"

#include <QProcess>
#include <QTest>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/xattr.h>

/// What copies keep.
class CopyTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wholeTree_data();
    void wholeTree();
    void singleItems_data();
    void singleItems();
    void otherDisk();
    void socketsNeverFail();
    void holesOfLargeFile();
    void deepTree();
    void foreignOwner();

private:
    std::string original(const std::string &name = {}) const
    {
        return m_source.path("tree" + name);
    }

    ScratchFolder m_source;
    Snapshot m_tree;
};

void CopyTest::initTestCase()
{
    makeOddTree(original());
    snapshot(original()); // from now on no link is read for the first time
    m_tree = snapshot(original());
    QVERIFY(m_tree.size() > 3020);
}

void CopyTest::wholeTree_data()
{
    QTest::addColumn<unsigned int>("mask");
    QTest::addColumn<bool>("inherits");
    QTest::newRow("usual") << 022U << false;
    QTest::newRow("no access for others") << 077U << false;
    QTest::newRow("no access for the owner") << 0777U << false;
    QTest::newRow("inherited group and access list") << 022U << true;
}

void CopyTest::wholeTree()
{
    QFETCH(unsigned int, mask);
    QFETCH(bool, inherits);
    const ScratchFolder scratch;
    makeFolder(scratch.path("backup"), inherits ? 02755 : 0755);
    if (inherits) {
        const QString backup = QString::fromStdString(scratch.path("backup"));
        QProcess::execute("setfacl", {"-d", "-m", "u:999:rwx", backup});
        ::chown(scratch.path("backup").c_str(), 0, 100);
        ::chmod(scratch.path("backup").c_str(), 02755);
    }
    const mode_t oldMask = ::umask(mask);
    std::string error;
    const bool isCopied = scratch.files().copy(original(), scratch.path("backup/copy"), error);
    ::umask(oldMask);
    QVERIFY2(isCopied, error.c_str());
    QCOMPARE(difference(m_tree, snapshot(scratch.path("backup/copy"))), QString());
    QCOMPARE(difference(m_tree, snapshot(original())), QString());
    QCOMPARE(scratch.names("backup"), std::vector<std::string>({"copy"}));
}

void CopyTest::singleItems_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const char *name : {"line\nbreak", "large", "secret", "program", "dangling", "pipe",
                             "sparse", "empty", "closed", "another"}) {
        QTest::newRow(name) << QByteArray(name);
    }
    QTest::newRow("longest name") << QByteArray(255, 'n');
}

void CopyTest::singleItems()
{
    QFETCH(QByteArray, name);
    const std::string item = original('/' + name.toStdString());
    const Snapshot before = snapshot(item);
    const ScratchFolder scratch;
    QProcess::execute("setfacl", {"-d", "-m", "u:999:rwx", QString::fromStdString(scratch.path())});

    std::string error;
    QVERIFY2(scratch.files().copy(item, scratch.path(name.toStdString()), error), error.c_str());
    QCOMPARE(difference(before, snapshot(scratch.path(name.toStdString()))), QString());
    QCOMPARE(scratch.names(), std::vector<std::string>({name.toStdString()}));
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
    std::string error;
    QVERIFY2(scratch.files().copy(original(), scratch.path("disk/copy"), error), error.c_str());
    QCOMPARE(difference(m_tree, snapshot(scratch.path("disk/copy"))), QString());
}

void CopyTest::socketsNeverFail()
{
    const ScratchFolder scratch;
    makeFolder(scratch.path("source"));
    const platform::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    scratch.path("source/socket").copy(address.sun_path, sizeof address.sun_path - 1);
    QCOMPARE(::bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    writeFile(scratch.path("source/file"), "kept");
    const Snapshot before = snapshot(scratch.path("source"));
    std::string error;
    QVERIFY2(scratch.files().copy(scratch.path("source"), scratch.path("copy"), error),
             error.c_str());
    QCOMPARE(difference(before, snapshot(scratch.path("copy"))), QString());
}

void CopyTest::holesOfLargeFile()
{
    const ScratchFolder scratch;
    const std::string source = scratch.path("source");
    writeFile(source, std::string(4096, 'a'));
    QCOMPARE(::truncate(source.c_str(), 1 << 30), 0);
    {
        const platform::FileDescriptor file(::open(source.c_str(), O_WRONLY));
        QCOMPARE(::pwrite(file.get(), std::string(4096, 'b').data(), 4096, 700 << 20), 4096);
    }
    const Snapshot before = snapshot(source);
    std::string error;
    QVERIFY2(scratch.files().copy(source, scratch.path("copy"), error), error.c_str());
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
    platform::FileDescriptor folder(::open(scratch.path("source").c_str(), O_RDONLY | O_DIRECTORY));
    for (int i = 0; i < levels; ++i) {
        QCOMPARE(::mkdirat(folder.get(), name.c_str(), 0755), 0);
        folder =
            platform::FileDescriptor(::openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY));
        const platform::FileDescriptor file(
            ::openat(folder.get(), "file", O_WRONLY | O_CREAT, 0644));
        QCOMPARE(::write(file.get(), "12345", 5), 5);
    }
    folder.reset();

    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit few = {256, limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
    std::string error;
    const bool isCopied = scratch.files().copy(scratch.path("source"), scratch.path("copy"), error);
    std::string deepest;
    int count = 0;
    scratch.files().visitSubpaths(scratch.path("copy"), [&](std::string_view path) {
        ++count;
        deepest = path.size() > deepest.size() ? path : deepest;
    });
    const std::uint64_t sourceSize = scratch.files().totalSize(scratch.path("source"));
    const std::uint64_t copySize = scratch.files().totalSize(scratch.path("copy"));
    const auto attributes = scratch.files().attributes(scratch.path("copy/" + deepest));
    const bool isRemoved = scratch.files().remove(scratch.path("copy"), error) &&
                           scratch.files().remove(scratch.path("source"), error);
    ::setrlimit(RLIMIT_NOFILE, &limit);

    QVERIFY2(isCopied, error.c_str());
    QCOMPARE(count, 2 * levels);
    QCOMPARE(deepest.size(), levels * (name.size() + 1) + 4);
    QVERIFY(attributes.has_value());
    QCOMPARE(attributes->size, 5U);
    QVERIFY(sourceSize >= levels * 5U);
    QCOMPARE(copySize, sourceSize);
    QVERIFY2(isRemoved, error.c_str());
    QCOMPARE(scratch.names().size(), 0U);
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
    makeFolder(scratch.path("backup"), 0777);
    QVERIFY(waitFor(start(
        [&scratch] {
            std::string error;
            return scratch.files().copy(scratch.path("source"), scratch.path("backup/copy"), error);
        },
        true)));
    struct stat status = {};
    QCOMPARE(::stat(scratch.path("backup/copy/program").c_str(), &status), 0);
    QCOMPARE(status.st_mode & 07777U, 0755U);
    QVERIFY(status.st_uid != 0);
}

QTEST_GUILESS_MAIN(CopyTest)

#include "CopyTest.moc"
