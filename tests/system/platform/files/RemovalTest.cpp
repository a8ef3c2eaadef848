#include "tests/system/platform/files/FileTree.h"

#include <QProcess>
#include <QTest>

#include <fcntl.h>

class RemovalTest : public QObject
{
    Q_OBJECT

private slots:
    void wholeTree();
    void linksAreNotFollowed();
    void protectedByOwner();
    void refusals_data();
    void refusals();
    void mountedFolder();
};

void RemovalTest::wholeTree()
{
    const ScratchFolder scratch;
    makeOddTree(scratch.path("tree"));
    std::string error;
    QVERIFY2(scratch.files().remove(scratch.path("tree/"), error), error.c_str());
    QCOMPARE(scratch.names().size(), 0U);
    QVERIFY(!scratch.files().remove(scratch.path("tree"), error));
    QCOMPARE(error, std::string("“tree” could not be removed: it does not exist."));
    QVERIFY(!scratch.files().remove("/", error));
}

void RemovalTest::linksAreNotFollowed()
{
    const ScratchFolder scratch;
    makePlainTree(scratch.path("kept"), 5);
    makeFolder(scratch.path("tree"));
    ::symlink("../kept", scratch.path("tree/link").c_str());
    ::symlink("kept", scratch.path("link").c_str());
    std::string error;
    QVERIFY2(scratch.files().remove(scratch.path("tree"), error), error.c_str());
    QVERIFY2(scratch.files().remove(scratch.path("link"), error), error.c_str());
    QCOMPARE(scratch.names(), std::vector<std::string>({"kept"}));
    QCOMPARE(snapshot(scratch.path("kept")).size(), 7U);
}

// Whatever a user took away from himself does not keep him from removing it.
void RemovalTest::protectedByOwner()
{
    const ScratchFolder scratch;
    ::chmod(scratch.path().c_str(), 0777);
    QVERIFY(waitFor(start(
        [&scratch] {
            std::string error;
            for (const mode_t mode : {0555U, 0600U, 0000U}) {
                makeFolder(scratch.path("tree"));
                makePlainTree(scratch.path("tree/inner"), 120);
                ::chmod(scratch.path("tree/inner/1").c_str(), mode);
                ::chmod(scratch.path("tree/inner").c_str(), mode);
                ::chmod(scratch.path("tree").c_str(), mode);
                if (!scratch.files().remove(scratch.path("tree"), error)) {
                    qInfo("%s", error.c_str());
                    return false;
                }
            }
            return true;
        },
        true)));
    QCOMPARE(scratch.names().size(), 0U);
}

void RemovalTest::refusals_data()
{
    QTest::addColumn<unsigned int>("mode");
    QTest::addColumn<QByteArray>("foreign");
    QTest::newRow("folder of another user") << 0755U << QByteArray("tree/1");
    QTest::newRow("closed folder of another user") << 0700U << QByteArray("tree/1");
    QTest::newRow("item in another user's sticky folder") << 01777U << QByteArray("tree/1");
    QTest::newRow("parent of another user") << 0755U << QByteArray(".");
}

void RemovalTest::refusals()
{
    QFETCH(unsigned int, mode);
    QFETCH(QByteArray, foreign);
    if (::geteuid() != 0) {
        QSKIP("only root can make folders of another owner");
    }
    const ScratchFolder scratch;
    ::chmod(scratch.path().c_str(), 0777);
    QVERIFY(waitFor(start(
        [&scratch] {
            makePlainTree(scratch.path("tree"), 150);
            return true;
        },
        true)));
    const std::string folder = scratch.path(foreign.toStdString());
    QCOMPARE(::chown(folder.c_str(), 1234, 1234), 0);
    QCOMPARE(::chown(scratch.path("tree/1/60").c_str(), 1234, 1234), 0);
    ::chmod(folder.c_str(), mode);
    QProcess::execute("find",
                      {QString::fromStdString(scratch.path()), "-false"}); // access all once
    const Snapshot before = snapshot(scratch.path());
    QVERIFY(waitFor(start(
        [&scratch] {
            std::string error;
            return !scratch.files().remove(scratch.path("tree"), error) &&
                   error.ends_with("could not be removed: permission was denied.");
        },
        true)));
    QCOMPARE(difference(before, snapshot(scratch.path())), QString());
}

// Another disk's files are not what was to be removed.
void RemovalTest::mountedFolder()
{
    const ScratchFolder scratch;
    makePlainTree(scratch.path("tree"), 10);
    const MountedFolder disk(scratch.path("tree/disk"), "size=1m");
    if (!disk.isMounted()) {
        QSKIP("only root may mount a file system");
    }
    writeFile(scratch.path("tree/disk/file"), "kept");
    const Snapshot before = snapshot(scratch.path());
    std::string error;
    QVERIFY(!scratch.files().remove(scratch.path("tree"), error));
    QCOMPARE(error,
             std::string("“tree/disk” could not be removed: another disk is mounted there."));
    QVERIFY(!scratch.files().remove(scratch.path("tree/disk"), error));
    QCOMPARE(difference(before, snapshot(scratch.path())), QString());
}

QTEST_GUILESS_MAIN(RemovalTest)

#include "RemovalTest.moc"
