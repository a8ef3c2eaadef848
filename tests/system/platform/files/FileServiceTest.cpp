#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <fcntl.h>

#include <set>

/// What the service tells of items.
class FileServiceTest : public QObject
{
    Q_OBJECT

private slots:
    void listings();
    void attributesAndExistence();
    void sizes();
    void closedFolders();
};

void FileServiceTest::listings()
{
    const ScratchFolder scratch;
    makeOddTree(scratch.path("tree"));
    std::set<std::string> visited;
    QVERIFY(scratch.files().visitSubpaths(scratch.path("tree"), [&visited](std::string_view path) {
        const std::size_t slash = path.rfind('/');
        if (slash != std::string_view::npos) {
            QVERIFY(visited.contains(std::string(path.substr(0, slash))));
        }
        QVERIFY(visited.emplace(path).second);
    }));
    std::set<std::string> expected;
    for (const auto &[path, text] : snapshot(scratch.path("tree"))) {
        expected.insert(path.empty() ? path : path.substr(1));
    }
    expected.erase("");
    QVERIFY(visited == expected);
    QCOMPARE(scratch.names("tree/many").size(), 3000U);
    QCOMPARE(scratch.names("tree/closed"), std::vector<std::string>({"inner"}));
    QVERIFY(!scratch.files().contents(scratch.path("tree/large")));
    QVERIFY(!scratch.files().contents(scratch.path("none")));
    QVERIFY(!scratch.files().visitSubpaths(scratch.path("tree/large"), [](std::string_view) {}));
}

void FileServiceTest::attributesAndExistence()
{
    const ScratchFolder scratch;
    writeFile(scratch.path("file"), "12345");
    const timespec dates[] = {{1, 0}, {1'600'000'000, 123'456'789}};
    ::utimensat(AT_FDCWD, scratch.path("file").c_str(), dates, 0);
    ::symlink("file", scratch.path("link").c_str());
    ::symlink("none", scratch.path("dangling").c_str());
    const auto file = scratch.files().attributes(scratch.path("file"));
    QVERIFY(file.has_value());
    QCOMPARE(file->size, 5U);
    QCOMPARE(file->modificationDate.tv_sec, 1'600'000'000);
    QCOMPARE(file->modificationDate.tv_nsec, 123'456'789);
    QVERIFY(S_ISREG(file->mode));
    QVERIFY(S_ISLNK(scratch.files().attributes(scratch.path("link"))->mode));
    QVERIFY(!scratch.files().attributes(scratch.path("none")));
    QVERIFY(scratch.files().exists(scratch.path("link")));
    QVERIFY(!scratch.files().exists(scratch.path("dangling")));
    QVERIFY(scratch.files().attributes(scratch.path("dangling")).has_value());
}

void FileServiceTest::sizes()
{
    const ScratchFolder scratch;
    makeOddTree(scratch.path("tree"));
    std::uint64_t expected = 0;
    scratch.files().visitSubpaths(scratch.path("tree"), [&](std::string_view path) {
        struct stat status = {};
        ::lstat(scratch.path("tree/" + std::string(path)).c_str(), &status);
        expected += static_cast<std::uint64_t>(status.st_size);
    });
    QVERIFY(expected > 64U << 20);
    QCOMPARE(scratch.files().totalSize(scratch.path("tree")), expected);
    QCOMPARE(scratch.files().totalSize(scratch.path("tree/empty/pipe too")), 0U);
    QCOMPARE(scratch.files().totalSize(scratch.path("none")), 0U);
}

void FileServiceTest::closedFolders()
{
    const ScratchFolder scratch;
    ::chmod(scratch.path().c_str(), 0777);
    QVERIFY(waitFor(start(
        [&scratch] {
            makeFolder(scratch.path("tree"));
            writeFile(scratch.path("tree/file"), "12345");
            makeFolder(scratch.path("tree/closed"));
            struct stat status = {};
            ::lstat(scratch.path("tree/closed").c_str(), &status);
            ::chmod(scratch.path("tree/closed").c_str(), 0);
            int count = 0;
            return scratch.files().visitSubpaths(scratch.path("tree"),
                                                 [&count](std::string_view) { ++count; }) &&
                   count == 2 && !scratch.files().contents(scratch.path("tree/closed")) &&
                   scratch.files().totalSize(scratch.path("tree")) ==
                       5 + static_cast<std::uint64_t>(status.st_size);
        },
        true)));
}

QTEST_GUILESS_MAIN(FileServiceTest)

#include "FileServiceTest.moc"
