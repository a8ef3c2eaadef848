#include "tests/system/platform/files/FileTree.h"

#include <QProcess>
#include <QTest>

#include <csignal>

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
    void fileThatGrows();
    void severalAtOnce();
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
    std::string error;
    QVERIFY(!scratch.files().copy(scratch.path("tree"), "/", error));
    QVERIFY2(error.find("could not be copied") != std::string::npos, error.c_str());
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

QTEST_GUILESS_MAIN(FaultTest)

#include "FaultTest.moc"
