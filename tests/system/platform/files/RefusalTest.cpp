#include "tests/system/platform/files/FileTree.h"

#include <QTest>

/// What is removed and copied, and what is refused beforehand and stays as it is.
class RefusalTest : public QObject
{
    Q_OBJECT

private slots:
    void protectedByOwner();
    void removals();
    void copies();
    void lockedItems();
    void mountedFolder();
    void foreignItemsAtHiddenName_data();
    void foreignItemsAtHiddenName();
    void mountAtHiddenName();
};

// Whatever a user took away from himself does not keep him from removing it.
void RefusalTest::protectedByOwner()
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

// Nothing is removed of what cannot be removed entirely, and what was opened is closed again.
void RefusalTest::removals()
{
    if (::geteuid() != 0) {
        QSKIP("only root can make folders of another owner");
    }
    // A folder of another user, a closed one, a sticky one with an item of his, and the parent.
    const std::pair<const char *, mode_t> foreignFolders[] = {
        {"tree/1", 0755}, {"tree/1", 0700}, {"tree/1", 01777}, {".", 0755}};
    for (const auto &[foreign, mode] : foreignFolders) {
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
}

// What is locked is found beforehand, also in a folder that is closed to its owner. A locked folder
// gets no copy, of which something would stay.
void RefusalTest::lockedItems()
{
    const ScratchFolder scratch;
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        makePlainTree(scratch.path("tree"), 150);
        makeFolder(scratch.path("tree/1"), 0);
        return true;
    }));
    for (const auto &[flag, locked] : {std::pair("i", "tree/1/70"), std::pair("a", "tree/1/70"),
                                       std::pair("i", "tree/2"), std::pair("a", "tree/2")}) {
        if (!runOn(scratch.path(locked), "chattr", {QString("+") + flag})) {
            QSKIP("this user or disk cannot lock files");
        }
        const Snapshot before = snapshot(scratch.path());
        const auto isRefused = [&scratch, locked = locked] {
            return scratch.remove("tree") ==
                       QString("“%1” could not be removed: it is locked.").arg(locked) &&
                   (scratch.path(locked).ends_with("70") ||
                    scratch.copy("tree/0/3", std::string(locked) + "/copy")
                        .endsWith("could not be copied: permission was denied."));
        };
        const bool isRefusedToRoot = isRefused();
        const bool isRefusedToOwner = isDoneByOrdinaryUser(isRefused);
        const QString changes = difference(before, snapshot(scratch.path()));
        runOn(scratch.path(locked), "chattr", {QString("-") + flag});
        QVERIFY2(isRefusedToRoot && isRefusedToOwner, locked);
        QCOMPARE(changes, QString());
    }
    QCOMPARE(scratch.remove("tree"), "");
}

// Another disk's files are not what was to be removed.
void RefusalTest::mountedFolder()
{
    ScratchFolder scratch;
    makePlainTree(scratch.path("tree"), 10);
    makePlainTree(scratch.path("mounted"), 10);
    if (!scratch.mount("mounted", "tree/disk")) {
        QSKIP("only root may mount a file system");
    }
    const Snapshot before = snapshot(scratch.path());
    QCOMPARE(scratch.remove("tree"),
             "“tree/disk” could not be removed: another disk is mounted there.");
    QVERIFY(!scratch.remove("tree/disk").isEmpty());
    QCOMPARE(difference(before, snapshot(scratch.path())), QString());
}

void RefusalTest::copies()
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
    QCOMPARE(scratch.remove("none"), "“none” could not be removed: it does not exist.");
    QVERIFY(scratch.files().copy(scratch.path("tree"), "/") && scratch.files().remove("/"));
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
    if (::geteuid() != 0) {
        return; // who can make nothing of another user
    }
    row("another user's", [](const std::string &path) {
        makeFolder(path, 0700);
        writeFile(path + "/tarnwell.txt", "");
        setOwner(path, 1234, 1234);
    });
    row("as on a disk without owners, but empty", [](const std::string &path) {
        makeFolder(path, 0777);
        setOwner(path, 1234, 1234);
        setOwner(path.substr(0, path.rfind('/')), 1234, 1234);
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

// What is mounted there is not emptied, and what is left beyond it is cleared.
void RefusalTest::mountAtHiddenName()
{
    ScratchFolder scratch;
    const std::string hidden = ".tarnwell-" + platform::locationHash("tree");
    makePlainTree(scratch.path("tree"), 10);
    for (const std::string &leftover : {std::string("mounted"), hidden + ".1", hidden + ".2"}) {
        makePlainTree(scratch.path(leftover + "/item"), 10);
        makeFolder(scratch.path(leftover), 0700);
        writeFile(scratch.path(leftover + "/tarnwell.txt"), "");
    }
    if (!scratch.mount("mounted", hidden + ".0")) {
        QSKIP("only root may mount a file system");
    }
    const Snapshot before = snapshot(scratch.path("mounted"));
    QCOMPARE(scratch.copy("tree", "tree.bak"), "");
    QCOMPARE(difference(before, snapshot(scratch.path("mounted"))), QString());
    QCOMPARE(scratch.names().size(), 4);
}

QTEST_GUILESS_MAIN(RefusalTest)

#include "RefusalTest.moc"
