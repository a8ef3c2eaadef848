#include "tests/system/platform/files/FileTree.h"

#include <QProcess>
#include <QTest>

class RemovalTest : public QObject
{
    Q_OBJECT

private slots:
    void wholeTree();
    void protectedByOwner();
    void refusals();
    void mountedFolder();
};

void RemovalTest::wholeTree()
{
    const ScratchFolder scratch;
    makeOddTree(scratch.path("tree"));
    QCOMPARE(scratch.remove("tree/link to a folder/"), "");
    QVERIFY(!isThere(scratch.path("tree/link to a folder")));
    QCOMPARE(scratch.names("tree/empty"), QStringList({"pipe too"}));
    QCOMPARE(scratch.remove("tree/"), "");
    QCOMPARE(scratch.names(), QStringList());
    QCOMPARE(scratch.remove("tree"), "“tree” could not be removed: it does not exist.");
    std::string error;
    QVERIFY(!scratch.files().remove("/", error));
}

// Whatever a user took away from himself does not keep him from removing it.
void RemovalTest::protectedByOwner()
{
    const ScratchFolder scratch;
    for (const mode_t mode : {0555U, 0600U, 0000U}) {
        QVERIFY(isDoneByOrdinaryUser([&scratch, mode] {
            makeFolder(scratch.path("tree"));
            makePlainTree(scratch.path("tree/inner"), 120);
            for (const char *folder : {"tree/inner/1", "tree/inner", "tree"}) {
                ::chmod(scratch.path(folder).c_str(), mode);
            }
            const QString error = scratch.remove("tree");
            qInfo("%s", qPrintable(error));
            return error.isEmpty();
        }));
        QCOMPARE(scratch.names(), QStringList());
    }
}

void RemovalTest::refusals()
{
    if (::geteuid() != 0) {
        QSKIP("only root can make folders of another owner");
    }
    // A folder of another user, a closed one, a sticky one with an item of his, and the parent.
    const std::pair<const char *, mode_t> foreignFolders[] = {
        {"tree/1", 0755}, {"tree/1", 0700}, {"tree/1", 01777}, {".", 0755}};
    for (const auto &[folder, mode] : foreignFolders) {
        const ScratchFolder scratch;
        QVERIFY(isDoneByOrdinaryUser([&scratch] {
            makePlainTree(scratch.path("tree"), 150);
            return true;
        }));
        setOwner(scratch.path(folder), 1234, 1234);
        setOwner(scratch.path("tree/1/60"), 1234, 1234);
        ::chmod(scratch.path(folder).c_str(), mode);
        QProcess::execute("find", {QString::fromStdString(scratch.path()), "-false"}); // access all
        const Snapshot before = snapshot(scratch.path());
        QVERIFY(isDoneByOrdinaryUser([&scratch] {
            return scratch.remove("tree").endsWith("could not be removed: permission was denied.");
        }));
        QCOMPARE(difference(before, snapshot(scratch.path())), QString());
    }
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
    QCOMPARE(scratch.remove("tree"),
             "“tree/disk” could not be removed: another disk is mounted there.");
    QVERIFY(!scratch.remove("tree/disk").isEmpty());
    QCOMPARE(difference(before, snapshot(scratch.path())), QString());
}

QTEST_GUILESS_MAIN(RemovalTest)

#include "RemovalTest.moc"
