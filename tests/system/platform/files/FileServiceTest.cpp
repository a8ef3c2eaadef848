#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <fcntl.h>

#include <set>

/// What the service tells of items.
class FileServiceTest : public QObject
{
    Q_OBJECT

private slots:
    void wholeTree();
    void attributesAndExistence();
    void closedFolders();
};

void FileServiceTest::wholeTree()
{
    const ScratchFolder scratch;
    const platform::FileService &files = scratch.files();
    makeOddTree(scratch.path("tree"));
    std::set<std::string> visited{""};
    std::uint64_t size = 0;
    QVERIFY(files.visitSubpaths(scratch.path("tree"), [&](std::string_view path) {
        const std::string inTree = '/' + std::string(path);
        QVERIFY(visited.contains(inTree.substr(0, inTree.rfind('/'))));
        QVERIFY(visited.insert(inTree).second);
        struct stat status = {};
        ::lstat(scratch.path("tree" + inTree).c_str(), &status);
        size += static_cast<std::uint64_t>(status.st_size);
    }));
    std::set<std::string> expected;
    for (const auto &[path, text] : snapshot(scratch.path("tree"))) {
        expected.insert(path);
    }
    QVERIFY(visited == expected);
    QVERIFY(size > 64U << 20);
    QCOMPARE(files.totalSize(scratch.path("tree")), size);
    QCOMPARE(files.totalSize(scratch.path("tree/empty/pipe too")), 0U);
    QCOMPARE(files.totalSize(scratch.path("none")), 0U);
    QCOMPARE(scratch.names("tree/many").size(), 3000);
    QCOMPARE(scratch.names("tree/closed"), QStringList({"inner"}));
    QVERIFY(!files.contents(scratch.path("tree/large")));
    QVERIFY(!files.contents(scratch.path("none")));
    QVERIFY(!files.visitSubpaths(scratch.path("tree/large"), [](std::string_view) {}));
}

void FileServiceTest::attributesAndExistence()
{
    const ScratchFolder scratch;
    const platform::FileService &files = scratch.files();
    writeFile(scratch.path("file"), "12345");
    const timespec dates[] = {{1, 0}, {1'600'000'000, 123'456'789}};
    ::utimensat(AT_FDCWD, scratch.path("file").c_str(), dates, 0);
    makeLink("file", scratch.path("link"));
    makeLink("none", scratch.path("dangling"));
    const auto file = files.attributes(scratch.path("file"));
    QVERIFY(file && S_ISREG(file->mode));
    QCOMPARE(file->size, 5U);
    QCOMPARE(file->modificationDate.tv_sec, 1'600'000'000);
    QCOMPARE(file->modificationDate.tv_nsec, 123'456'789);
    QVERIFY(S_ISLNK(files.attributes(scratch.path("link"))->mode));
    QVERIFY(files.exists(scratch.path("link")) && !files.exists(scratch.path("dangling")));
    QVERIFY(files.attributes(scratch.path("dangling")) && !files.attributes(scratch.path("none")));
}

void FileServiceTest::closedFolders()
{
    const ScratchFolder scratch;
    QVERIFY(isDoneByOrdinaryUser([&scratch] {
        makeFolder(scratch.path("tree"));
        writeFile(scratch.path("tree/file"), "12345");
        makeFolder(scratch.path("tree/closed"), 0);
        struct stat status = {};
        ::lstat(scratch.path("tree/closed").c_str(), &status);
        int count = 0;
        return scratch.files().visitSubpaths(scratch.path("tree"),
                                             [&count](std::string_view) { ++count; }) &&
               count == 2 && !scratch.files().contents(scratch.path("tree/closed")) &&
               scratch.files().totalSize(scratch.path("tree")) ==
                   5 + static_cast<std::uint64_t>(status.st_size);
    }));
}

QTEST_GUILESS_MAIN(FileServiceTest)

#include "FileServiceTest.moc"
