#include "tests/system/platform/files/FileTree.h"

#include <QProcess>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/wait.h>

/// Copies that must fail, and leave nothing behind, and copies that must not.
class FaultTest : public QObject
{
    Q_OBJECT

private slots:
    void refusals_data();
    void refusals();
    void unreadableFile();
    void fullDisk_data();
    void fullDisk();
    void itemsThatMove();
    void fileThatGrows();
    void twoAtOnce();

private:
    static bool isOneLine(const std::string &error)
    {
        const QString text = QString::fromUtf8(error);
        return !error.empty() && text.toStdString() == error && !text.contains('\n');
    }
};

void FaultTest::refusals_data()
{
    QTest::addColumn<QByteArray>("source");
    QTest::addColumn<QByteArray>("destination");
    QTest::addColumn<QByteArray>("words");
    const auto row = [](const char *name, const char *source, const QByteArray &destination,
                        const char *words) {
        QTest::newRow(name) << QByteArray(source) << destination << QByteArray(words);
    };
    row("missing", "tree/none", "new", "“none” could not be copied: it does not exist.");
    row("existing folder", "tree", "other",
        "“other” could not be copied: an item with this name exists");
    row("existing file", "tree/file", "other/file", "an item with this name exists already.");
    row("dangling link", "tree/file", "dangling", "an item with this name exists already.");
    row("inside itself", "tree", "tree/inner/new",
        "“tree” could not be copied: the copy would lie inside it.");
    row("itself", "tree", "tree", "exists already.");
    row("long name", "tree", QByteArray(256, 'n'), "its name is too long for the disk.");
    row("no folder", "tree", "none/new", "the folder for the copy does not exist.");
    row("in a file", "tree", "tree/file/new", "not a folder.");
    row("the root", "tree", "/", "could not be copied");
}

void FaultTest::refusals()
{
    QFETCH(QByteArray, source);
    QFETCH(QByteArray, destination);
    QFETCH(QByteArray, words);
    const ScratchFolder scratch;
    makePlainTree(scratch.path("tree"), 10);
    makeFolder(scratch.path("tree/inner"));
    writeFile(scratch.path("tree/file"), "file");
    makeFolder(scratch.path("other"));
    writeFile(scratch.path("other/file"), "other");
    ::symlink("nowhere", scratch.path("dangling").c_str());
    snapshot(scratch.path());
    const Snapshot before = snapshot(scratch.path());

    std::string error;
    const std::string target = destination == "/" ? "/" : scratch.path(destination.toStdString());
    QVERIFY(!scratch.files().copy(scratch.path(source.toStdString()), target, error));
    QVERIFY2(isOneLine(error) && QByteArray::fromStdString(error).contains(words), error.c_str());
    QCOMPARE(difference(before, snapshot(scratch.path())), QString());
}

void FaultTest::unreadableFile()
{
    const ScratchFolder scratch;
    ::chmod(scratch.path().c_str(), 0777);
    QVERIFY(waitFor(start(
        [&scratch] {
            makePlainTree(scratch.path("tree"), 100);
            const std::string closed = scratch.path("tree/1/un\nreadable");
            writeFile(closed, "closed");
            ::chmod(closed.c_str(), 0);
            std::string error;
            return !scratch.files().copy(scratch.path("tree"), scratch.path("copy"), error) &&
                   error == "“tree/1/un\\nreadable” could not be read: permission was denied.";
        },
        true)));
    QCOMPARE(scratch.names(), std::vector<std::string>({"tree"}));
}

void FaultTest::fullDisk_data()
{
    QTest::addColumn<QByteArray>("options");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("bytes") << QByteArray("size=1m") << QByteArray("the disk is full.");
    QTest::newRow("items") << QByteArray("nr_inodes=100") << QByteArray("the disk is full.");
    QTest::newRow("quota") << QByteArray("usrquota,usrquota_block_hardlimit=1m")
                           << QByteArray("the disk quota is used up.");
    QTest::newRow("read-only") << QByteArray() << QByteArray("the disk is read-only.");
}

void FaultTest::fullDisk()
{
    QFETCH(QByteArray, options);
    QFETCH(QByteArray, reason);
    const ScratchFolder scratch;
    const MountedFolder disk(scratch.path("disk"), options.toStdString());
    if (!disk.isMounted()) {
        QSKIP("this system or user cannot mount such a file system");
    }
    ::chmod(scratch.path("disk").c_str(), 0777);
    if (options.isEmpty()) {
        QVERIFY(disk.makeReadOnly());
    }
    ::chmod(scratch.path().c_str(), 0777);
    QVERIFY(waitFor(start(
        [&scratch] {
            makePlainTree(scratch.path("tree"), 2000);
            return true;
        },
        true)));
    writeFile(scratch.path("large"), std::string(2 << 20, 'l'));
    const Snapshot before = snapshot(scratch.path("tree"));
    const bool isFileRefused = options != "nr_inodes=100";
    QVERIFY(waitFor(start(
        [&scratch, &reason, isFileRefused] {
            std::string treeError;
            std::string fileError;
            return !scratch.files().copy(scratch.path("tree"), scratch.path("disk/copy"),
                                         treeError) &&
                   QByteArray::fromStdString(treeError).endsWith(reason) &&
                   (!isFileRefused ||
                    (!scratch.files().copy(scratch.path("large"), scratch.path("disk/file"),
                                           fileError) &&
                     QByteArray::fromStdString(fileError).endsWith(reason)));
        },
        true)));
    QCOMPARE(scratch.names("disk").size(), 0U);
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
                ::symlink("/etc", moving.c_str());
            } else {
                ::mkfifo(moving.c_str(), 0644);
            }
            writeFile(file, "new");
            ::rename(folder.c_str(), (folder + "x").c_str());
            ::rename((folder + "x").c_str(), folder.c_str());
        }
        return true;
    });
    std::string error;
    bool isCopied = true;
    bool isConfined = true;
    for (int i = 0; i < 30 && isCopied; ++i) {
        isCopied = scratch.files().copy(scratch.path("tree"), scratch.path("copy"), error);
        for (int j = 0; j < 5; ++j) {
            const auto moving =
                scratch.files().attributes(scratch.path("copy/moving" + std::to_string(j)));
            isConfined &= !moving || !S_ISDIR(moving->mode) ||
                          scratch.names("copy/moving" + std::to_string(j)).empty();
        }
        isCopied = isCopied && scratch.files().remove(scratch.path("copy"), error);
    }
    ::kill(mover, SIGKILL);
    waitFor(mover);
    QVERIFY2(isCopied, error.c_str());
    QVERIFY(isConfined);
    QCOMPARE(scratch.names(), std::vector<std::string>({"tree"}));
}

void FaultTest::fileThatGrows()
{
    const ScratchFolder scratch(ScratchFolder::Medium::Memory);
    makeFolder(scratch.path("tree"));
    writeFile(scratch.path("tree/log"), "start\n");
    const int writer = start([&scratch] {
        const platform::FileDescriptor log(
            ::open(scratch.path("tree/log").c_str(), O_WRONLY | O_APPEND));
        const std::string line = "one line of a log that grows all the time\n";
        for (int i = 0; i < 2'000'000; ++i) {
            if (::write(log.get(), line.data(), line.size()) < 0) {
                return false;
            }
        }
        return true;
    });
    std::string error;
    bool isCopied = true;
    bool isConsistent = true;
    for (int i = 0; i < 20 && isCopied; ++i) {
        isCopied = scratch.files().copy(scratch.path("tree"), scratch.path("copy"), error);
        isConsistent &=
            QProcess::execute(
                "cmp", {"-s", "-n",
                        QString::number(scratch.files().attributes(scratch.path("copy/log"))->size),
                        QString::fromStdString(scratch.path("copy/log")),
                        QString::fromStdString(scratch.path("tree/log"))}) == 0;
        isCopied = isCopied && scratch.files().remove(scratch.path("copy"), error);
    }
    ::kill(writer, SIGKILL);
    waitFor(writer);
    QVERIFY2(isCopied, error.c_str());
    QVERIFY(isConsistent);
}

// Of several copies to one place one wins, and the others say why they do not.
void FaultTest::twoAtOnce()
{
    const ScratchFolder scratch(ScratchFolder::Medium::Memory);
    makePlainTree(scratch.path("tree"), 300);
    const Snapshot before = snapshot(scratch.path("tree"));
    for (int round = 0; round < 20; ++round) {
        std::vector<int> processes;
        for (int i = 0; i < 3; ++i) {
            processes.push_back(start([&scratch] {
                std::string error;
                const bool isCopied =
                    scratch.files().copy(scratch.path("tree"), scratch.path("copy"), error);
                const bool isExpected =
                    error.ends_with("exists already.") ||
                    error.ends_with("it is being copied or removed by another process.");
                if (!isCopied && !isExpected) {
                    qInfo("%s", error.c_str());
                }
                return isCopied || isExpected;
            }));
        }
        for (const int process : processes) {
            QVERIFY(waitFor(process));
        }
        QCOMPARE(difference(before, snapshot(scratch.path("copy"))), QString());
        QCOMPARE(scratch.names(), std::vector<std::string>({"copy", "tree"}));
        std::string error;
        QVERIFY2(scratch.files().remove(scratch.path("copy"), error), error.c_str());
    }
}

QTEST_GUILESS_MAIN(FaultTest)

#include "FaultTest.moc"
