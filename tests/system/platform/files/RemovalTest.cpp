#include "tests/system/platform/files/FileTree.h"

#include <QProcess>
#include <QTest>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

const char *s_vanishing = nullptr; // a folder that another process removes as soon as it may

} // namespace

// Takes the place of the C library's.
int fchmodat(int folder, const char *name, mode_t mode, int flags) noexcept
{
    static const auto original =
        reinterpret_cast<decltype(&fchmodat)>(::dlsym(RTLD_NEXT, "fchmodat"));
    const int result = original(folder, name, mode, flags);
    if (s_vanishing != nullptr && std::string_view(name) == s_vanishing) {
        ::unlinkat(folder, name, AT_REMOVEDIR);
    }
    return result;
}

class RemovalTest : public QObject
{
    Q_OBJECT

private slots:
    void wholeTree();
    void protectedByOwner();
    void refusals();
    void closedFolderVanishes();
    void lockedItems();
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
    QVERIFY(scratch.files().remove("/"));
}

// Whatever a user took away from himself does not keep him from removing it.
void RemovalTest::protectedByOwner()
{
    const ScratchFolder scratch;
    for (const mode_t mode : {0555U, 0600U, 0000U}) {
        QVERIFY(isDoneByOrdinaryUser([&scratch, mode] {
            constexpr int folders = 150; // each needs a second look
            makeFolder(scratch.path("tree"));
            makeFolder(scratch.path("tree/inner"));
            for (int i = 0; i < folders; ++i) {
                const std::string folder = scratch.path("tree/inner/" + std::to_string(i));
                makeFolder(folder);
                writeFile(folder + "/file", "");
                ::chmod(folder.c_str(), mode);
            }
            for (const char *folder : {"tree/inner", "tree"}) {
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

// A folder that was opened for the check and vanished passes its mode to no other.
void RemovalTest::closedFolderVanishes()
{
    if (::geteuid() != 0) {
        QSKIP("only root can make folders of another owner");
    }
    const ScratchFolder scratch;
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        std::string folder = scratch.path("tree");
        makeFolder(folder);
        for (int level = 0; level < 10; ++level) { // which of the two comes first is up to the disk
            makeFolder(folder + "/closed", 0);
            folder += '/' + std::to_string(level);
            makeFolder(folder);
        }
        writeFile(folder + "/file", "");
        return true;
    }));
    setOwner(scratch.path("tree/0/1/2/3/4/5/6/7/8/9"), 1234, 1234);
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        s_vanishing = "closed";
        return scratch.remove("tree").endsWith("could not be removed: permission was denied.");
    }));
    QProcess find;
    find.start("find", {QString::fromStdString(scratch.path("tree")), "-not", "-name", "closed",
                        "-type", "d", "-not", "-perm", "755"});
    QVERIFY(find.waitForFinished());
    QCOMPARE(find.readAllStandardOutput(), "");
}

// A locked file is found beforehand, also in a folder that is closed to its owner.
void RemovalTest::lockedItems()
{
    const ScratchFolder scratch;
    for (const char *flag : {"i", "a"}) {
        QVERIFY(isDoneByOrdinaryUser([&scratch] {
            makePlainTree(scratch.path("tree"), 150);
            return true;
        }));
        const QString file = QString::fromStdString(scratch.path("tree/1/70"));
        if (QProcess::execute("chattr", {QString("+") + flag, file}) != 0) {
            QSKIP("this user or disk cannot lock files");
        }
        ::chmod(scratch.path("tree/1").c_str(), 0);
        snapshot(scratch.path());
        const Snapshot before = snapshot(scratch.path());
        for (const bool isOrdinary : {true, false}) {
            const auto isRefused = [&scratch] {
                return scratch.remove("tree") == "“tree/1/70” could not be removed: it is locked.";
            };
            const bool isExpected = isOrdinary ? isDoneByOrdinaryUser(isRefused) : isRefused();
            const QString changes = difference(before, snapshot(scratch.path()));
            QProcess::execute("chattr", {QString(isOrdinary ? "+" : "-") + flag, file});
            QVERIFY(isExpected);
            QCOMPARE(changes, QString());
        }
        QCOMPARE(scratch.remove("tree"), "");
    }

    // A folder out of which nothing can be removed gets no copy, of which something would stay.
    makeFolder(scratch.path("growing"));
    writeFile(scratch.path("file"), "");
    const QString growing = QString::fromStdString(scratch.path("growing"));
    QProcess::execute("chattr", {"+a", growing});
    const QString error = scratch.copy("file", "growing/file");
    const QStringList names = scratch.names("growing");
    QProcess::execute("chattr", {"-a", growing});
    QVERIFY(error.endsWith("could not be copied: permission was denied."));
    QCOMPARE(names, QStringList());
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
