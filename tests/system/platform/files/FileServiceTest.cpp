#include "system/platform/files/StandardStreams.h"
#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <fcntl.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <vector>

/// What the service tells of items, what its copies keep, and what it removes, refuses and clears.
class FileServiceTest : public QObject
{
    Q_OBJECT

private slots:
    void contentsAndSize();
    void printableNames();
    void closedStandardStreams();
    void copiesOfOddItems();
    void copiesOfDeepTrees();
    void copiesByOrdinaryUsers();
    void foldersClosedByTheirOwner();
    void refusedCopies();
    void othersItems();
    void unremovableItems();
    void itemsWithHiddenNames();
};

void FileServiceTest::contentsAndSize()
{
    const ScratchFolder scratch;
    const platform::FileService &files = scratch.files();
    QVERIFY(isDoneByOrdinaryUser([&] {
        std::uint64_t size = 4'501'500;
        scratch.run("mkdir -p tree/many tree/closed; chmod 0 tree/closed; ln -s many tree/link\n"
                    "for i in {1..3000}; do printf %${i}s >tree/many/$i; done");
        for (const char *item : {"tree/many", "tree/link", "tree/closed"}) {
            size += static_cast<std::uint64_t>(statusOf(scratch.path(item)).st_size);
        }
        // So many are not listed at once.
        return files.contents(scratch.path("tree/many"))->size() == 3000 &&
               files.totalSize(scratch.path("tree")) == size &&
               !files.contents(scratch.path("tree/closed"));
    }));
    for (const char *item : {"tree/many/7", "none"}) {
        QVERIFY(!files.contents(scratch.path(item)) && files.totalSize(scratch.path(item)) == 0);
    }
}

void FileServiceTest::printableNames()
{
    const std::pair<QByteArray, QByteArray> names[] = {
        {"Größe €😀", "Größe €😀"},
        {"a\nb\tc\x7f\xc2\x85", "a\\nb\\x09c\\x7F\\xC2\\x85"},
        // A separator, two directions.
        {"\xe2\x80\xa8\xe2\x80\xae\xe2\x81\xa6", "\\xE2\\x80\\xA8\\xE2\\x80\\xAE\\xE2\\x81\\xA6"},
        // Latin-1, cut off, overlong, a surrogate and what lies beyond the last character.
        {"Gr\xf6\xdf.", "Gr\\xF6\\xDF."},
        {"\xe2\x82", "\\xE2\\x82"},
        {"\xc0\xaf\xe0\x80\xaf\xf0\x80\x80\xaf", "\\xC0\\xAF\\xE0\\x80\\xAF\\xF0\\x80\\x80\\xAF"},
        {"\xed\xa0\x80\xf4\x90\x80\x80", "\\xED\\xA0\\x80\\xF4\\x90\\x80\\x80"},
        {QByteArray(5000, 'x') + "€" + QByteArray(299, 'y'), "…" + QByteArray(299, 'y')}};
    for (const auto &[name, shown] : names) {
        QCOMPARE(QByteArray::fromStdString(platform::printableName(name.toStdString())), shown);
    }
    QCOMPARE(platform::errorReason(ENOSPC), "the disk is full");
    QCOMPARE(platform::errorReason(987654), "error 987654");
}

// A program that was started with closed streams gives no file of its own their numbers.
void FileServiceTest::closedStandardStreams()
{
    QVERIFY(isDoneElsewhere([] {
        struct stat status[4] = {};
        ::fstat(1, &status[3]);
        ::close(0);
        ::close(2);
        platform::openStandardStreams();
        for (const int stream : {0, 1, 2}) {
            ::fstat(stream, &status[stream]);
        }
        const dev_t null = statusOf("/dev/null").st_rdev;
        return status[0].st_rdev == null && status[1].st_ino == status[3].st_ino &&
               status[2].st_rdev == null && ::open("/", O_PATH) > 2;
    }));
}

void FileServiceTest::copiesOfOddItems()
{
    const ScratchFolder scratch;
    makeOddTree(scratch.path("tree"));
    const Snapshot tree = snapshot(scratch.path("tree"));
    QVERIFY(tree.size() > 100);

    // Where others, or even the owner, get no access to new items, and where these inherit a group
    // and an access list.
    const std::pair<mode_t, bool> places[] = {
        {022, false}, {077, false}, {0777, false}, {022, true}};
    for (const auto &[mask, inherits] : places) {
        QVERIFY(scratch.run("mkdir place"));
        if (inherits) {
            scratch.run("chgrp 100 place || :; chmod 2755 place; setfacl -d -m u:999:rwx place");
        }
        QVERIFY(isDoneElsewhere([&, mask = mask] {
            ::umask(mask);
            return scratch.copy("tree", "place/copy").isEmpty();
        }));
        QCOMPARE(difference(tree, snapshot(scratch.path("place/copy"))), "");
        QCOMPARE(difference(tree, snapshot(scratch.path("tree"))), "");
        QCOMPARE(scratch.names("place"), QStringList({"copy"}));
        QCOMPARE(scratch.remove("place"), "");
    }

    // One at a time.
    QVERIFY(scratch.run("mkdir place; setfacl -d -m u:999:rwx place"));
    for (const std::string item :
         {"names/new\nline", "links/folder", "links/dangling", "links/loop", "special/fifo",
          "special/socket", "holes/islands", "holes/all", "attributes/list", "attributes/read-only",
          "modes/0400", "modes/4711", "modes/folder 0500", "dates/1903", "dates/2400", "empty"}) {
        // A slash at its end does not lead behind a link.
        QCOMPARE(scratch.copy("tree/" + item + '/', "place/copy"), "");
        QCOMPARE(difference(snapshot(scratch.path("tree/" + item)),
                            snapshot(scratch.path("place/copy"))),
                 "");
        QCOMPARE(scratch.names("place"), QStringList({"copy"}));
        QCOMPARE(scratch.remove("place/copy"), "");
    }

    // The original's time of access stays, and is that of the copy.
    QVERIFY(scratch.run("touch -d @1000000000.123456789 file; touch -m -d @1000200000.9 file"));
    QCOMPARE(scratch.copy("file", "place/file"), "");
    for (const char *file : {"file", "place/file"}) {
        QCOMPARE(statusOf(scratch.path(file)).st_atim.tv_sec, 1'000'000'000);
        QCOMPARE(statusOf(scratch.path(file)).st_atim.tv_nsec, 123'456'789);
    }

    // Who holds a lease on a file is asked by a signal to give it up.
    static const platform::FileDescriptor leased(
        ::open(scratch.path("file").c_str(), O_RDWR | O_CLOEXEC));
    ::signal(SIGIO, [](int) { ::fcntl(leased.get(), F_SETLEASE, F_UNLCK); });
    QCOMPARE(::fcntl(leased.get(), F_SETLEASE, F_WRLCK), 0);
    QCOMPARE(scratch.copy("file", "place/leased"), "");
    QCOMPARE(::fcntl(leased.get(), F_GETLEASE), F_UNLCK);
}

void FileServiceTest::copiesOfDeepTrees()
{
    const ScratchFolder scratch;
    QVERIFY(scratch.run(R"(mkdir source; cd source; exec python3 -c "
import os
for level in range(1500):
    os.mkdir('d' * 100)
    os.chdir('d' * 100)
    open('file', 'w').write('12345')
")"));
    QVERIFY(isDoneElsewhere([&] {
        const rlimit few = {50, 50};
        ::setrlimit(RLIMIT_NOFILE, &few);
        const auto size = scratch.files().totalSize(scratch.path("source"));
        return scratch.copy("source", "copy").isEmpty() && size >= 1500 * 5U &&
               scratch.files().totalSize(scratch.path("copy")) == size &&
               scratch.remove("copy").isEmpty() && scratch.remove("source").isEmpty();
    }));
    QCOMPARE(scratch.names(), QStringList());
}

// An ordinary user cannot keep another owner, but a group that he is in, and then may not pass on
// that owner's privileges. His own files keep their attributes, whatever he may not do with them.
void FileServiceTest::copiesByOrdinaryUsers()
{
    if (::geteuid() != 0) {
        QSKIP("only root can make files of another owner");
    }
    const ScratchFolder scratch;
    QVERIFY(scratch.run("mkdir source; cd source; touch program; chown 1234:5678 program\n"
                        "chmod 6755 program"));
    QVERIFY(isDoneByOrdinaryUser([&scratch] { return scratch.copy("source", "copy").isEmpty(); }));
    QVERIFY(scratch.run("[ \"$(stat -c '%a %u %g' copy/program)\" = '755 65534 5678' ]"));
    QVERIFY(scratch.run("mkdir source/inner; cd source/inner; touch $'un\\nreadable'; chmod 0 *"));
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        return scratch.copy("source", "other") ==
               "“source/inner/un\\nreadable” could not be read: permission was denied.";
    }));

    const std::string own = scratch.path("own");
    for (const mode_t mask : {022U, 0777U}) {
        QVERIFY(isDoneByOrdinaryUser([&] {
            scratch.run("echo own >own; setfattr -n user.note -v mine own\n"
                        "setfacl -m u:1234:r own; chmod 440 own");
            ::umask(mask);
            return scratch.copy("own", "own copy").isEmpty();
        }));
        QCOMPARE(difference(snapshot(own), snapshot(own + " copy")), "");
        QCOMPARE(scratch.remove("own") + scratch.remove("own copy"), "");
    }
}

// Whatever a user took away from himself does not keep him from removing it.
void FileServiceTest::foldersClosedByTheirOwner()
{
    const ScratchFolder scratch;
    for (const std::string mode : {"555", "600", "0"}) {
        QVERIFY(isDoneByOrdinaryUser([&scratch, mode] {
            // Each of the many needs a second look.
            return scratch.run("mkdir -p $(seq -f tree/inner/%g 150)\n"
                               "touch $(seq -f tree/inner/%g/file 150)\n"
                               "chmod " +
                               mode + " tree/inner/* tree/inner tree") &&
                   scratch.remove("tree").isEmpty();
        }));
        QCOMPARE(scratch.names(), QStringList());
    }
}

void FileServiceTest::refusedCopies()
{
    const ScratchFolder scratch;
    QVERIFY(scratch.run("mkdir -p tree/inner other; echo file >tree/file; echo other >other/file\n"
                        "ln -s nowhere dangling"));
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
        QCOMPARE(difference(before, snapshot(scratch.path())), "");
    }
    QCOMPARE(scratch.remove("none"), "“none” could not be removed: it does not exist.");
    QVERIFY(scratch.files().copy(scratch.path("tree"), "/") && scratch.files().remove("/"));
}

// Nothing is removed of what cannot be removed entirely, and what was opened is closed again.
void FileServiceTest::othersItems()
{
    if (::geteuid() != 0) {
        QSKIP("only root can make folders of another owner");
    }
    // A folder of another user, a closed one, a sticky one with an item of his, and the parent.
    for (const char *change :
         {"chmod 755 tree/1; chown 1234 tree/1", "chmod 700 tree/1; chown 1234 tree/1",
          "chmod 1777 tree/1; chown 1234 tree/1", "chmod 755 .; chown 1234 ."}) {
        const ScratchFolder scratch;
        QVERIFY(isDoneByOrdinaryUser([&scratch] {
            makePlainTree(scratch.path("tree"), 150);
            return scratch.run("chmod 100 tree/0; chmod 500 tree");
        }));
        QVERIFY(scratch.run(std::string("chown 1234 tree/1/60; ") + change));
        const Snapshot before = snapshot(scratch.path());
        QVERIFY(isDoneByOrdinaryUser([&scratch] {
            return scratch.remove("tree").endsWith("could not be removed: permission was denied.");
        }));
        QCOMPARE(difference(before, snapshot(scratch.path())), "");
    }
}

// What is locked, and another disk's files, are found beforehand, also in a folder that is closed
// to its owner. A locked folder gets no copy, of which something would stay.
void FileServiceTest::unremovableItems()
{
    const ScratchFolder scratch;
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        makePlainTree(scratch.path("tree"), 150);
        return scratch.run("chmod 0 tree/1; cp -r tree/2 mounted");
    }));
    const std::tuple<std::string, std::string, std::string, const char *> hindrances[] = {
        {"mount --bind mounted ", "umount ", "tree/2", "another disk is mounted there"},
        {"chattr +i ", "chattr -i ", "tree/1/70", "it is locked"},
        {"chattr +a ", "chattr -a ", "tree/1/70", "it is locked"},
        {"chattr +i ", "chattr -i ", "tree/2", "it is locked"},
        {"chattr +a ", "chattr -a ", "tree/2", "it is locked"}};
    for (const auto &[hinder, release, item, reason] : hindrances) {
        if (!scratch.run(hinder + item)) {
            QSKIP("this user or disk cannot lock files or mount disks");
        }
        const Snapshot before = snapshot(scratch.path());
        const auto isRefused =
            [&, name = item, isLocked = hinder.starts_with("chattr"),
             words = QString("“%1” could not be removed: %2.").arg(item.c_str(), reason)] {
                return scratch.remove("tree") == words && !scratch.remove(name).isEmpty() &&
                       (!isLocked || name != "tree/2" ||
                        scratch.copy("tree/0/3", "tree/2/copy")
                            .endsWith("could not be copied: permission was denied."));
            };
        const bool isRefusedToRoot = isRefused();
        const bool isRefusedToOwner = isDoneByOrdinaryUser(isRefused);
        const QString changes = difference(before, snapshot(scratch.path()));
        scratch.run(release + item);
        QVERIFY2(isRefusedToRoot && isRefusedToOwner, item.c_str());
        QCOMPARE(changes, "");
    }
    QCOMPARE(scratch.remove("tree"), "");
}

// Only leftovers of our own are cleared. Anything else with such a name stays, and hinders nothing.
void FileServiceTest::itemsWithHiddenNames()
{
    const ScratchFolder scratch;
    const std::string marked = "mkdir -m 700 $0; touch $0/tarnwell.txt; ";
    std::vector<std::string> others = {"echo kept >$0", "mkfifo $0", "ln -s tree $0",
                                       "mkdir -m 700 $0; cp -r tree $0/item", // not marked
                                       marked + "touch $0/letter"};
    if (::geteuid() == 0) {
        others.push_back(marked + "chown 1234 $0");
        others.push_back("mkdir -m 777 $0; chown 1234 . $0"); // as on a disk without owners
        others.push_back("mkdir $0; mount --bind mounted $0");
    }
    auto make = [&, number = 0](const std::string &script) mutable {
        scratch.run("sh -c '" + script + "' .tarnwell-" + platform::locationHash("tree") + '.' +
                    std::to_string(number++));
    };
    makePlainTree(scratch.path("tree"), 10);
    QVERIFY(
        scratch.run("mkdir -m 700 mounted; touch mounted/tarnwell.txt; cp -r tree mounted/item"));
    for (const std::string &script : others) {
        make(script);
    }
    QVERIFY(scratch.run("touch -d @0 ."));
    const Snapshot before = snapshot(scratch.path());
    make(marked + "cp -r tree $0/item");
    make(marked + "cp -r tree $0/item");
    QCOMPARE(scratch.copy("tree", "tree.bak"), "");
    QCOMPARE(scratch.remove("tree"), "");
    QCOMPARE(scratch.copy("tree.bak", "tree"), "");
    QCOMPARE(scratch.remove("tree.bak"), "");
    QVERIFY(scratch.run("touch -d @0 ."));
    QCOMPARE(difference(before, snapshot(scratch.path())), "");
}

QTEST_GUILESS_MAIN(FileServiceTest)

#include "FileServiceTest.moc"
