#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <csignal>

/// Copies that are refused, and leave nothing behind, and what keeps off others.
class RefusalTest : public QObject
{
    Q_OBJECT

private slots:
    void refusals();
    void unreadableFile();
    void fullDisk_data();
    void fullDisk();
    void locks();
    void leases();
    void foreignItemsAtHiddenName_data();
    void foreignItemsAtHiddenName();
    void mountAtHiddenName();
};

void RefusalTest::refusals()
{
    const ScratchFolder scratch;
    makePlainTree(scratch.path("tree"), 10);
    makeFolder(scratch.path("tree/inner"));
    writeFile(scratch.path("tree/file"), "file");
    makeFolder(scratch.path("other"));
    writeFile(scratch.path("other/file"), "other");
    makeLink("nowhere", scratch.path("dangling"));
    const Snapshot before = snapshot(scratch.path());
    const std::tuple<const char *, std::string, QString> refusals[] = {
        {"tree/none", "new", "“none” could not be copied: it does not exist."},
        {"tree", "other", "“other” could not be copied: an item with this name exists already."},
        {"tree/file", "other/file", "“file” could not be copied: an item with this name exists"},
        {"tree/file", "dangling", "“dangling” could not be copied: an item with this name exists"},
        {"tree", "tree/inner/new", "“tree” could not be copied: the copy would lie inside it."},
        {"tree", "tree", "“tree” could not be copied: an item with this name exists already."},
        {"tree", std::string(256, 'n'), "could not be copied: its name is too long for the disk."},
        {"tree", "none/new", "“tree” could not be copied: the folder for the copy does not exist."},
        {"tree", "tree/file/new", "could not be copied: a part of its path is not a folder."}};
    for (const auto &[source, destination, words] : refusals) {
        const QString error = scratch.copy(source, destination);
        QVERIFY2(error.contains(words), qPrintable(error));
        QCOMPARE(difference(before, snapshot(scratch.path())), QString());
    }
    QVERIFY(scratch.files().copy(scratch.path("tree"), "/") && scratch.files().remove("/"));
}

void RefusalTest::unreadableFile()
{
    const ScratchFolder scratch;
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        makePlainTree(scratch.path("tree"), 100);
        const std::string closed = scratch.path("tree/1/un\nreadable");
        writeFile(closed, "closed");
        ::chmod(closed.c_str(), 0);
        return scratch.copy("tree", "copy") ==
               "“tree/1/un\\nreadable” could not be read: permission was denied.";
    }));
    QCOMPARE(scratch.names(), QStringList({"tree"}));
}

void RefusalTest::fullDisk_data()
{
    QTest::addColumn<std::string>("options");
    QTest::addColumn<QString>("reason");
    QTest::newRow("bytes") << std::string("size=1m") << "the disk is full.";
    QTest::newRow("items") << std::string("nr_inodes=100") << "the disk is full.";
    QTest::newRow("quota") << std::string("usrquota,usrquota_block_hardlimit=1m")
                           << "the disk quota is used up.";
    QTest::newRow("read-only") << std::string() << "the disk is read-only.";
}

void RefusalTest::fullDisk()
{
    QFETCH(std::string, options);
    QFETCH(QString, reason);
    const ScratchFolder scratch;
    const MountedFolder disk(scratch.path("disk"), options);
    if (!disk.isMounted()) {
        QSKIP("this system or user cannot mount such a file system");
    }
    ::chmod(scratch.path("disk").c_str(), 0777);
    QVERIFY(!options.empty() || disk.makeReadOnly());
    writeFile(scratch.path("large"), std::string(2 << 20, 'l'));
    const bool isFileRefused = options != "nr_inodes=100";
    QVERIFY(isDoneByOrdinaryUser([&] {
        makePlainTree(scratch.path("tree"), 2000);
        return scratch.copy("tree", "disk/copy").endsWith(reason) &&
               (!isFileRefused || scratch.copy("large", "disk/file").endsWith(reason));
    }));
    QCOMPARE(scratch.names("disk"), QStringList());
}

// An item and its backups are one process's at a time. What another program locks is its own.
void RefusalTest::locks()
{
    const ScratchFolder scratch;
    makePlainTree(scratch.path("tree"), 10);
    makePlainTree(scratch.path("other"), 10);
    const platform::FileDescriptor folder(::open(scratch.path("tree").c_str(), O_RDONLY));
    QCOMPARE(::flock(folder.get(), LOCK_EX), 0);
    std::array<int, 2> ends = {-1, -1};
    QCOMPARE(::pipe(ends.data()), 0);
    const int other = start([&] {
        platform::LocationLock lock;
        return !scratch.files().lock(scratch.path("tree.bak"), lock) &&
               scratch.remove("tree").isEmpty() && ::write(ends[1], "!", 1) == 1 && ::pause() == 0;
    });
    char told = 0;
    QCOMPARE(::read(ends[0], &told, 1), 1);
    const QString reason = "it is being copied or removed by another process.";
    const QString copyError = scratch.copy("other", "tree");
    const QString removalError = scratch.remove("tree.bak");
    const QString otherError = scratch.copy("other", "other.bak");
    ::kill(other, SIGKILL);
    waitFor(other);
    QVERIFY(copyError.endsWith(reason) && removalError.endsWith(reason));
    QCOMPARE(otherError, "");
    QCOMPARE(scratch.names(), QStringList({"other", "other.bak"}));
    QCOMPARE(scratch.copy("other", "tree"), "");
}

// A lease is asked for with a signal and given up.
void RefusalTest::leases()
{
    const ScratchFolder scratch;
    writeFile(scratch.path("leased"), "kept");
    std::array<int, 2> ends = {-1, -1};
    QCOMPARE(::pipe(ends.data()), 0);
    const int holder = start([&] {
        static const platform::FileDescriptor leased(
            ::open(scratch.path("leased").c_str(), O_RDWR));
        ::signal(SIGIO, [](int) { ::fcntl(leased.get(), F_SETLEASE, F_UNLCK); });
        ::fcntl(leased.get(), F_SETLEASE, F_WRLCK);
        return ::write(ends[1], "!", 1) == 1 && ::pause() == 0;
    });
    char told = 0;
    QCOMPARE(::read(ends[0], &told, 1), 1);
    const QString error = scratch.copy("leased", "leased.bak");
    ::kill(holder, SIGKILL);
    waitFor(holder);
    QCOMPARE(error, "");
}

void RefusalTest::foreignItemsAtHiddenName_data()
{
    using Plant = std::function<void(const std::string &)>;
    QTest::addColumn<Plant>("plant");
    const auto row = [](const char *name, const Plant &plant) { QTest::newRow(name) << plant; };
    row("file", [](const std::string &path) { writeFile(path, "kept"); });
    row("pipe", [](const std::string &path) { ::mkfifo(path.c_str(), 0644); });
    row("link", [](const std::string &path) { makeLink("tree", path); });
    row("not marked", [](const std::string &path) {
        makeFolder(path, 0700);
        makePlainTree(path + "/item", 10);
    });
    row("more than ours in it", [](const std::string &path) {
        makeFolder(path, 0700);
        writeFile(path + "/tarnwell.txt", "");
        writeFile(path + "/letter", "kept");
    });
    row("another user's", [](const std::string &path) {
        makeFolder(path, ::geteuid() == 0 ? 0700 : 0);
        if (::geteuid() == 0) {
            writeFile(path + "/tarnwell.txt", "");
            setOwner(path, 1234, 1234);
        }
    });
    row("as on a disk without owners, but empty", [](const std::string &path) {
        makeFolder(path, 0777);
        if (::geteuid() == 0) {
            setOwner(path, 1234, 1234);
            setOwner(path.substr(0, path.rfind('/')), 1234, 1234);
        } else {
            writeFile(path + "/letter", "kept");
        }
    });
}

// Only leftovers of our own are cleared. Anything else with such a name stays, and hinders nothing.
void RefusalTest::foreignItemsAtHiddenName()
{
    QFETCH(std::function<void(const std::string &)>, plant);
    const ScratchFolder scratch;
    makePlainTree(scratch.path("tree"), 10);
    const std::string hidden = scratch.path(".tarnwell-" + platform::locationHash("tree"));
    plant(hidden + ".0");
    plant(hidden + ".1");
    const Snapshot before = snapshot(scratch.path());
    QCOMPARE(scratch.copy("tree", "tree.bak"), "");
    QCOMPARE(scratch.remove("tree"), "");
    QCOMPARE(scratch.copy("tree.bak", "tree"), "");
    QCOMPARE(scratch.remove("tree.bak"), "");
    Snapshot after = snapshot(scratch.path());
    after["b''"] = before.at("b''"); // its date
    QCOMPARE(difference(before, after), QString());
}

// A disk that is mounted there is not emptied, and what is left beyond it is cleared.
void RefusalTest::mountAtHiddenName()
{
    const ScratchFolder scratch;
    const std::string hidden = scratch.path(".tarnwell-" + platform::locationHash("tree"));
    makePlainTree(scratch.path("tree"), 10);
    makePlainTree(hidden + ".1/item", 10);
    makeFolder(hidden + ".1", 0700);
    writeFile(hidden + ".1/tarnwell.txt", "");
    const MountedFolder disk(hidden + ".0", "size=1m,mode=700");
    if (!disk.isMounted()) {
        QSKIP("only root may mount a file system");
    }
    writeFile(hidden + ".0/tarnwell.txt", "");
    writeFile(hidden + ".0/item", "kept");
    QCOMPARE(scratch.copy("tree", "tree.bak"), "");
    QVERIFY(isThere(hidden + ".0/item") && isThere(hidden + ".0/tarnwell.txt"));
    QCOMPARE(scratch.names().size(), 3);
}

QTEST_GUILESS_MAIN(RefusalTest)

#include "RefusalTest.moc"
