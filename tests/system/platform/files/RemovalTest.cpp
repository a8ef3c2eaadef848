#include "tests/system/platform/files/FileTree.h"

#include <QTest>

class RemovalTest : public QObject
{
    Q_OBJECT

private slots:
    void wholeTree();
    void protectedByOwner();
    void refusals_data();
    void refusals();
    void lockedItems_data();
    void lockedItems();
    void mountedFolder();
};

void RemovalTest::wholeTree()
{
    const ScratchFolder scratch;
    makeOddTree(scratch.path("tree"));
    QCOMPARE(scratch.remove("tree/links/folder/"), "");
    QVERIFY(!isThere(scratch.path("tree/links/folder")) && isThere(scratch.path("tree/names")));
    QCOMPARE(scratch.remove("tree/"), "");
    QCOMPARE(scratch.names(), QStringList());
    QCOMPARE(scratch.remove("tree"), "“tree” could not be removed: it does not exist.");
}

// Whatever a user took away from himself does not keep him from removing it.
void RemovalTest::protectedByOwner()
{
    const ScratchFolder scratch;
    for (const mode_t mode : {0555U, 0600U, 0000U}) {
        QVERIFY(isDoneByOrdinaryUser([&scratch, mode] {
            constexpr int folders = 150; // each needs a second look
            for (int i = 0; i < folders; ++i) {
                const std::string folder = scratch.path("tree/inner/" + std::to_string(i));
                makeFolder(folder);
                writeFile(folder + "/file", "");
                makeFolder(folder, mode);
            }
            for (const char *folder : {"tree/inner", "tree"}) {
                ::chmod(scratch.path(folder).c_str(), mode);
            }
            return scratch.remove("tree").isEmpty();
        }));
        QCOMPARE(scratch.names(), QStringList());
    }
}

void RemovalTest::refusals_data()
{
    QTest::addColumn<std::string>("foreign");
    QTest::addColumn<mode_t>("mode");
    QTest::newRow("another user's folder") << std::string("tree/1") << mode_t{0755};
    QTest::newRow("his closed folder") << std::string("tree/1") << mode_t{0700};
    QTest::newRow("his item in a sticky folder") << std::string("tree/1") << mode_t{01777};
    QTest::newRow("the folder around it") << std::string(".") << mode_t{0755};
}

// Nothing is removed of what cannot be removed entirely, and what was opened is closed again.
void RemovalTest::refusals()
{
    if (::geteuid() != 0) {
        QSKIP("only root can make folders of another owner");
    }
    QFETCH(std::string, foreign);
    QFETCH(mode_t, mode);
    const ScratchFolder scratch;
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        makePlainTree(scratch.path("tree"), 150);
        makeFolder(scratch.path("tree/0"), 0100);
        makeFolder(scratch.path("tree"), 0500);
        return true;
    }));
    setOwner(scratch.path(foreign), 1234, 1234);
    setOwner(scratch.path("tree/1/60"), 1234, 1234);
    ::chmod(scratch.path(foreign).c_str(), mode);
    const Snapshot before = snapshot(scratch.path());
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        return scratch.remove("tree").endsWith("could not be removed: permission was denied.");
    }));
    QCOMPARE(difference(before, snapshot(scratch.path())), QString());
}

void RemovalTest::lockedItems_data()
{
    QTest::addColumn<QString>("flag");
    QTest::addColumn<std::string>("locked");
    for (const QString flag : {"i", "a"}) {
        for (const std::string locked : {"tree/1/70", "tree/2"}) {
            QTest::addRow("%s, %s", locked.c_str(), qPrintable(flag)) << flag << locked;
        }
    }
}

// What is locked is found beforehand, also in a folder that is closed to its owner. A locked folder
// gets no copy, of which something would stay.
void RemovalTest::lockedItems()
{
    QFETCH(QString, flag);
    QFETCH(std::string, locked);
    const ScratchFolder scratch;
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        makePlainTree(scratch.path("tree"), 150);
        makeFolder(scratch.path("tree/1"), 0);
        return true;
    }));
    if (!runOn(scratch.path(locked), "chattr", {'+' + flag})) {
        QSKIP("this user or disk cannot lock files");
    }
    const Snapshot before = snapshot(scratch.path());
    const auto areRefused = [&] {
        const bool isFolder = locked != "tree/1/70";
        return scratch.remove("tree") ==
                   QString("“%1” could not be removed: it is locked.").arg(locked.c_str()) &&
               (!isFolder || scratch.copy("tree/0/3", locked + "/copy")
                                 .endsWith("could not be copied: permission was denied."));
    };
    const bool areRefusedToRoot = areRefused();
    const bool areRefusedToOwner = isDoneByOrdinaryUser(areRefused);
    const QString changes = difference(before, snapshot(scratch.path()));
    runOn(scratch.path(locked), "chattr", {'-' + flag});
    QVERIFY(areRefusedToRoot && areRefusedToOwner);
    QCOMPARE(changes, QString());
    QCOMPARE(scratch.remove("tree"), "");
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
