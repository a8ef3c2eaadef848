#include "tests/system/platform/files/FileTree.h"

#include <QProcess>
#include <QTest>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <map>
#include <string>
#include <utility>

namespace {

bool s_listsTwice = false;

} // namespace

// Takes the place of the C library's.
ssize_t getdents64(int folder, void *buffer, size_t size) noexcept
{
    static std::map<int, std::string> listed;
    const ssize_t length = ::syscall(SYS_getdents64, folder, buffer, size);
    if (length > 0 && s_listsTwice) {
        listed[folder].assign(static_cast<char *>(buffer), size_t(length));
    }
    if (length != 0 || !s_listsTwice) {
        return length;
    }
    const std::string again = std::exchange(listed[folder], {});
    std::ranges::copy(again, static_cast<char *>(buffer));
    return ssize_t(again.size());
}

/// Copies that must fail, and leave nothing behind, and copies that must not.
class FaultTest : public QObject
{
    Q_OBJECT

private slots:
    void refusals();
    void unreadableFile();
    void fullDisk_data();
    void fullDisk();
    void itemsThatMove();
    void itemsListedTwice();
    void fileThatGrows();
    void severalAtOnce();
    void locks();
    void foreignItemsAtHiddenName();
};

void FaultTest::refusals()
{
    const ScratchFolder scratch;
    makePlainTree(scratch.path("tree"), 10);
    makeFolder(scratch.path("tree/inner"));
    writeFile(scratch.path("tree/file"), "file");
    makeFolder(scratch.path("other"));
    writeFile(scratch.path("other/file"), "other");
    makeLink("nowhere", scratch.path("dangling"));
    snapshot(scratch.path());
    const Snapshot before = snapshot(scratch.path());
    struct Refusal
    {
        const char *source;
        std::string destination;
        QString words;
    };
    const Refusal refusals[] = {
        {"tree/none", "new", "“none” could not be copied: it does not exist."},
        {"tree", "other", "“other” could not be copied: an item with this name exists"},
        {"tree/file", "other/file", "an item with this name exists already."},
        {"tree/file", "dangling", "an item with this name exists already."},
        {"tree", "tree/inner/new", "“tree” could not be copied: the copy would lie inside it."},
        {"tree", "tree", "exists already."},
        {"tree", std::string(256, 'n'), "its name is too long for the disk."},
        {"tree", "none/new", "the folder for the copy does not exist."},
        {"tree", "tree/file/new", "not a folder."}};
    for (const Refusal &refusal : refusals) {
        const QString error = scratch.copy(refusal.source, refusal.destination);
        QVERIFY2(error.contains(refusal.words) && !error.contains('\n') &&
                     !error.contains(QChar::ReplacementCharacter),
                 qPrintable(refusal.words + " against " + error));
        QCOMPARE(difference(before, snapshot(scratch.path())), QString());
    }
    const auto error = scratch.files().copy(scratch.path("tree"), "/");
    QVERIFY(error && error->description().find("could not be copied") != std::string::npos);
}

void FaultTest::unreadableFile()
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

void FaultTest::fullDisk_data()
{
    QTest::addColumn<QByteArray>("options");
    QTest::addColumn<QString>("reason");
    QTest::newRow("bytes") << QByteArray("size=1m") << "the disk is full.";
    QTest::newRow("items") << QByteArray("nr_inodes=100") << "the disk is full.";
    QTest::newRow("quota") << QByteArray("usrquota,usrquota_block_hardlimit=1m")
                           << "the disk quota is used up.";
    QTest::newRow("read-only") << QByteArray() << "the disk is read-only.";
}

void FaultTest::fullDisk()
{
    QFETCH(QByteArray, options);
    QFETCH(QString, reason);
    const ScratchFolder scratch;
    const MountedFolder disk(scratch.path("disk"), options.toStdString());
    if (!disk.isMounted()) {
        QSKIP("this system or user cannot mount such a file system");
    }
    ::chmod(scratch.path("disk").c_str(), 0777);
    QVERIFY(!options.isEmpty() || disk.makeReadOnly());
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        makePlainTree(scratch.path("tree"), 2000);
        return true;
    }));
    writeFile(scratch.path("large"), std::string(2 << 20, 'l'));
    const Snapshot before = snapshot(scratch.path("tree"));
    const bool isFileRefused = options != "nr_inodes=100";
    QVERIFY(isDoneByOrdinaryUser([&] {
        return scratch.copy("tree", "disk/copy").endsWith(reason) &&
               (!isFileRefused || scratch.copy("large", "disk/file").endsWith(reason));
    }));
    QCOMPARE(scratch.names("disk"), QStringList());
    QCOMPARE(difference(before, snapshot(scratch.path("tree"))), QString());
}

// Items that vanish, come and change their kind below the top do not fail a copy.
void FaultTest::itemsThatMove()
{
    const ScratchFolder scratch(ScratchFolder::Medium::Memory);
    makePlainTree(scratch.path("tree"), 1500);
    const int mover = start([&scratch] {
        for (unsigned int i = 0;; ++i) {
            const std::string folder = scratch.path("tree/" + std::to_string(i % 30));
            const std::string file = folder + '/' + std::to_string(i % 30 * 50 + i / 30 % 50);
            const std::string moving = scratch.path("tree/moving" + std::to_string(i % 5));
            ::unlink(file.c_str());
            ::unlink(moving.c_str());
            ::rmdir(moving.c_str());
            if (i % 3 == 0) {
                ::mkdir(moving.c_str(), 0755);
            } else if (i % 3 == 1) {
                makeLink("/etc", moving);
            } else {
                ::mkfifo(moving.c_str(), 0644);
            }
            writeFile(file, "new");
            ::rename(folder.c_str(), (folder + "x").c_str());
            ::rename((folder + "x").c_str(), folder.c_str());
        }
        return true;
    });
    QString error;
    for (int i = 0; i < 30 && error.isEmpty(); ++i) {
        error = scratch.copy("tree", "copy");
        error += scratch.remove("copy");
    }
    ::kill(mover, SIGKILL);
    waitFor(mover);
    QCOMPARE(error, "");
    QCOMPARE(scratch.names(), QStringList({"tree"}));
}

// As on a disk that counts its entries, when others come into the folder while it is read.
void FaultTest::itemsListedTwice()
{
    const ScratchFolder scratch;
    makeOddTree(scratch.path("tree"));
    snapshot(scratch.path("tree")); // which gives links the access times that they keep
    const Snapshot before = snapshot(scratch.path("tree"));
    s_listsTwice = true;
    const QString error = scratch.copy("tree", "copy");
    s_listsTwice = false;
    QCOMPARE(error, "");
    QCOMPARE(difference(before, snapshot(scratch.path("copy"))), QString());
}

void FaultTest::fileThatGrows()
{
    const ScratchFolder scratch(ScratchFolder::Medium::Memory);
    makeFolder(scratch.path("tree"));
    const QString log = QString::fromStdString(scratch.path("tree/log"));
    const QString copiedLog = QString::fromStdString(scratch.path("copy/log"));
    QProcess writer;
    writer.setStandardOutputFile(log);
    writer.start("head", {"-c", "100M", "/dev/urandom"});
    QVERIFY(writer.waitForStarted());
    for (int i = 0; i < 20; ++i) {
        QCOMPARE(scratch.copy("tree", "copy"), "");
        const QString size = QString::number(QFileInfo(copiedLog).size());
        QCOMPARE(QProcess::execute("cmp", {"-s", "-n", size, copiedLog, log}), 0);
        QCOMPARE(scratch.remove("copy"), "");
    }
    writer.kill();
    writer.waitForFinished();
}

// Of several copies to one place one wins, and the others say why they do not.
void FaultTest::severalAtOnce()
{
    const ScratchFolder scratch(ScratchFolder::Medium::Memory);
    makePlainTree(scratch.path("tree"), 300);
    const Snapshot before = snapshot(scratch.path("tree"));
    const auto copy = [&scratch] {
        const QString error = scratch.copy("tree", "copy");
        const bool isExpected = error.isEmpty() || error.endsWith("exists already.") ||
                                error.endsWith("it is being copied or removed by another process.");
        if (!isExpected) {
            qInfo("%s", qPrintable(error));
        }
        return isExpected;
    };
    for (int round = 0; round < 20; ++round) {
        for (const int process : {start(copy), start(copy), start(copy)}) {
            QVERIFY(waitFor(process));
        }
        QCOMPARE(difference(before, snapshot(scratch.path("copy"))), QString());
        QCOMPARE(scratch.names(), QStringList({"copy", "tree"}));
        QCOMPARE(scratch.remove("copy"), "");
    }
}

// An item and its backups are one process's at a time. What another program locks is its own.
void FaultTest::locks()
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
    QVERIFY(scratch.copy("other", "tree").endsWith(reason));
    QVERIFY(scratch.remove("tree.bak").endsWith(reason));
    QCOMPARE(scratch.copy("other", "other.bak"), "");
    ::kill(other, SIGKILL);
    waitFor(other);
    QCOMPARE(scratch.names(), QStringList({"other", "other.bak"}));
    QCOMPARE(scratch.copy("other", "tree"), "");

    // A lease is asked for with a signal and given up.
    writeFile(scratch.path("leased"), "kept");
    const int holder = start([&] {
        static const platform::FileDescriptor leased(
            ::open(scratch.path("leased").c_str(), O_RDWR));
        ::signal(SIGIO, [](int) { ::fcntl(leased.get(), F_SETLEASE, F_UNLCK); });
        ::fcntl(leased.get(), F_SETLEASE, F_WRLCK);
        return ::write(ends[1], "!", 1) == 1 && ::pause() == 0;
    });
    QCOMPARE(::read(ends[0], &told, 1), 1);
    QCOMPARE(scratch.copy("leased", "leased.bak"), "");
    ::kill(holder, SIGKILL);
    waitFor(holder);
}

// Only leftovers of our own are cleared. Anything else with such a name stays, and hinders nothing.
void FaultTest::foreignItemsAtHiddenName()
{
    using Plant = std::function<void(const std::string &)>;
    const Plant plants[] = {[](const std::string &path) { writeFile(path, "kept"); },
                            [](const std::string &path) { ::mkfifo(path.c_str(), 0644); },
                            [](const std::string &path) { makeLink("tree", path); },
                            [](const std::string &path) { // not marked
                                makeFolder(path, 0700);
                                makePlainTree(path + "/item", 10);
                            },
                            [](const std::string &path) { // marked, and with more in it
                                makeFolder(path, 0700);
                                writeFile(path + "/tarnwell.txt", "");
                                writeFile(path + "/letter", "kept");
                            },
                            [](const std::string &path) { // another user's
                                makeFolder(path, ::geteuid() == 0 ? 0700 : 0);
                                writeFile(path + "/tarnwell.txt", "");
                                if (::geteuid() == 0) {
                                    setOwner(path, 1234, 1234);
                                }
                            },
                            [](const std::string &path) { // as on a disk without owners, but empty
                                makeFolder(path, 0777);
                                if (::geteuid() == 0) {
                                    setOwner(path, 1234, 1234);
                                    setOwner(path.substr(0, path.rfind('/')), 1234, 1234);
                                } else {
                                    writeFile(path + "/letter", "kept");
                                }
                            }};
    const std::string hidden = ".tarnwell-" + platform::locationHash("tree");
    for (const Plant &plant : plants) {
        const ScratchFolder scratch;
        makePlainTree(scratch.path("tree"), 10);
        plant(scratch.path(hidden + ".0"));
        plant(scratch.path(hidden + ".1"));
        snapshot(scratch.path());
        const Snapshot before = snapshot(scratch.path());
        QCOMPARE(scratch.copy("tree", "tree.bak"), "");
        QCOMPARE(scratch.remove("tree"), "");
        QCOMPARE(scratch.copy("tree.bak", "tree"), "");
        QCOMPARE(scratch.remove("tree.bak"), "");
        Snapshot after = snapshot(scratch.path());
        after[""] = before.at(""); // its date
        QCOMPARE(difference(before, after), QString());
    }

    // A disk that is mounted there is not emptied, and what is left beyond it is cleared.
    const ScratchFolder scratch;
    makePlainTree(scratch.path("tree"), 10);
    makeFolder(scratch.path(hidden + ".1"), 0700);
    writeFile(scratch.path(hidden + ".1/tarnwell.txt"), "");
    makePlainTree(scratch.path(hidden + ".1/item"), 10);
    const MountedFolder disk(scratch.path(hidden + ".0"), "size=1m,mode=700");
    if (!disk.isMounted()) {
        QSKIP("only root may mount a file system");
    }
    writeFile(scratch.path(hidden + ".0/tarnwell.txt"), "");
    writeFile(scratch.path(hidden + ".0/item"), "kept");
    QCOMPARE(scratch.copy("tree", "tree.bak"), "");
    QCOMPARE(scratch.names(hidden + ".0"), QStringList({"item", "tarnwell.txt"}));
    QCOMPARE(scratch.names().size(), 3);
}

QTEST_GUILESS_MAIN(FaultTest)

#include "FaultTest.moc"
