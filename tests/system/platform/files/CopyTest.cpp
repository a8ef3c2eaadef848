#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/xattr.h>

/// What copies keep.
class CopyTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wholeTree();
    void singleItems();
    void deepTree();
    void ordinaryUser();

private:
    ScratchFolder m_scratch;
    Snapshot m_tree;
};

void CopyTest::initTestCase()
{
    makeOddTree(m_scratch.path("tree"));
    m_tree = snapshot(m_scratch.path("tree"));
    QVERIFY(m_tree.size() > 100);
}

void CopyTest::wholeTree()
{
    // Where others, or even the owner, get no access to new items, and where these inherit a group
    // and an access list.
    const std::pair<mode_t, bool> places[] = {
        {022, false}, {077, false}, {0777, false}, {022, true}};
    for (const auto &[mask, inherits] : places) {
        makeFolder(m_scratch.path("place"), inherits ? 02755 : 0755);
        if (inherits) {
            setOwner(m_scratch.path("place"), ::geteuid(), ::geteuid() == 0 ? 100 : ::getegid());
            ::chmod(m_scratch.path("place").c_str(), 02755);
            runOn(m_scratch.path("place"), "setfacl", {"-d", "-m", "u:999:rwx"});
        }
        const mode_t oldMask = ::umask(mask);
        const QString error = m_scratch.copy("tree", "place/copy");
        ::umask(oldMask);
        QCOMPARE(error, "");
        QCOMPARE(difference(m_tree, snapshot(m_scratch.path("place/copy"))), QString());
        QCOMPARE(difference(m_tree, snapshot(m_scratch.path("tree"))), QString());
        QCOMPARE(m_scratch.names("place"), QStringList({"copy"}));
        QCOMPARE(m_scratch.remove("place"), "");
    }
}

void CopyTest::singleItems()
{
    makeFolder(m_scratch.path("place"));
    runOn(m_scratch.path("place"), "setfacl", {"-d", "-m", "u:999:rwx"});
    for (const std::string item :
         {"names/new\nline", "links/folder", "links/dangling", "links/loop", "special/fifo",
          "special/socket", "holes/islands", "holes/all", "attributes/list", "attributes/read-only",
          "modes/0400", "modes/4711", "modes/folder 0500", "dates/1903", "dates/2400", "empty"}) {
        // A slash at its end does not lead behind a link.
        QCOMPARE(m_scratch.copy("tree/" + item + '/', "place/copy"), "");
        QCOMPARE(difference(snapshot(m_scratch.path("tree/" + item)),
                            snapshot(m_scratch.path("place/copy"))),
                 QString());
        QCOMPARE(m_scratch.names("place"), QStringList({"copy"}));
        QCOMPARE(m_scratch.remove("place/copy"), "");
    }

    // The original's time of access stays, and is that of the copy.
    writeFile(m_scratch.path("file"), "file");
    const timespec dates[] = {{1'000'000'000, 123'456'789}, {1'000'200'000, 987'654'321}};
    ::utimensat(AT_FDCWD, m_scratch.path("file").c_str(), dates, 0);
    QCOMPARE(m_scratch.copy("file", "place/file"), "");
    for (const char *file : {"file", "place/file"}) {
        QCOMPARE(statusOf(m_scratch.path(file)).st_atim.tv_sec, dates[0].tv_sec);
        QCOMPARE(statusOf(m_scratch.path(file)).st_atim.tv_nsec, dates[0].tv_nsec);
    }

    // Who holds a lease on a file is asked by a signal to give it up.
    static const platform::FileDescriptor leased(
        ::open(m_scratch.path("file").c_str(), O_RDWR | O_CLOEXEC));
    ::signal(SIGIO, [](int) { ::fcntl(leased.get(), F_SETLEASE, F_UNLCK); });
    QCOMPARE(::fcntl(leased.get(), F_SETLEASE, F_WRLCK), 0);
    QCOMPARE(m_scratch.copy("file", "place/leased"), "");
    QCOMPARE(::fcntl(leased.get(), F_GETLEASE), F_UNLCK);
}

void CopyTest::deepTree()
{
    constexpr int levels = 1500;
    const ScratchFolder scratch;
    makeFolder(scratch.path("source"));
    QVERIFY(runOn(scratch.path("source"), "python3",
                  {"-c", "import os, sys\nos.chdir(sys.argv[1])\nfor level in range(1500):\n"
                         "    os.mkdir('d' * 100)\n    os.chdir('d' * 100)\n"
                         "    open('file', 'w').write('12345')"}));
    std::string deepest;
    for (int level = 0; level < levels; ++level) {
        deepest += std::string(100, 'd') + '/';
    }
    deepest += "file";

    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit few = {50, limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
    const QString copyError = scratch.copy("source", "copy");
    const auto sourceSize = scratch.files().totalSize(scratch.path("source"));
    const auto copySize = scratch.files().totalSize(scratch.path("copy"));
    QString errors = scratch.copy("copy/" + deepest, "copy/" + deepest + '2');
    errors += scratch.remove("copy/" + deepest);
    const bool isMoved = scratch.files().exists(scratch.path("copy/" + deepest + '2')) &&
                         !scratch.files().exists(scratch.path("copy/" + deepest));
    errors += scratch.remove("copy") + scratch.remove("source");
    ::setrlimit(RLIMIT_NOFILE, &limit);

    QCOMPARE(copyError, "");
    QVERIFY(sourceSize >= levels * 5U);
    QCOMPARE(copySize, sourceSize);
    QCOMPARE(errors, "");
    QVERIFY(isMoved);
    QCOMPARE(scratch.names(), QStringList());
}

// An ordinary user cannot keep another owner, but a group that he is in, and then may not pass on
// that owner's privileges. His own files keep their attributes, whatever he may not do with them.
void CopyTest::ordinaryUser()
{
    if (::geteuid() != 0) {
        QSKIP("only root can make files of another owner");
    }
    const ScratchFolder scratch;
    makeFolder(scratch.path("source"));
    writeFile(scratch.path("source/program"), "#!");
    setOwner(scratch.path("source/program"), 1234, 5678);
    ::chmod(scratch.path("source/program").c_str(), 06755);
    QVERIFY(isDoneByOrdinaryUser([&scratch] { return scratch.copy("source", "copy").isEmpty(); }));
    const struct stat status = statusOf(scratch.path("copy/program"));
    QCOMPARE(status.st_mode & 07777U, 0755U);
    QCOMPARE(status.st_uid, 65534U);
    QCOMPARE(status.st_gid, 5678U);
    makeFolder(scratch.path("source/inner"));
    writeFile(scratch.path("source/inner/un\nreadable"), "");
    ::chmod(scratch.path("source/inner/un\nreadable").c_str(), 0);
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        return scratch.copy("source", "other") ==
               "“source/inner/un\\nreadable” could not be read: permission was denied.";
    }));

    const std::string own = scratch.path("own");
    for (const mode_t mask : {022U, 0777U}) {
        QVERIFY(isDoneByOrdinaryUser([&] {
            writeFile(own, "own");
            ::setxattr(own.c_str(), "user.note", "mine", 4, 0);
            runOn(own, "setfacl", {"-m", "u:1234:r"});
            ::chmod(own.c_str(), 0440);
            ::umask(mask);
            return scratch.copy("own", "own copy").isEmpty();
        }));
        QCOMPARE(difference(snapshot(own), snapshot(own + " copy")), QString());
        QCOMPARE(scratch.remove("own") + scratch.remove("own copy"), "");
    }
}

QTEST_GUILESS_MAIN(CopyTest)

#include "CopyTest.moc"
