#include "system/platform/files/StandardStreams.h"
#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <fcntl.h>

/// What the service tells of items.
class FileServiceTest : public QObject
{
    Q_OBJECT

private slots:
    void wholeTree();
    void attributesAndExistence();
    void closedFolders();
    void closedStandardStreams();
};

void FileServiceTest::wholeTree()
{
    const ScratchFolder scratch;
    const platform::FileService &files = scratch.files();
    makeOddTree(scratch.path("tree"));
    std::uint64_t size = 0;
    for (const auto &[path, text] : snapshot(scratch.path("tree"))) {
        struct stat status = {};
        ::lstat(scratch.path("tree" + path).c_str(), &status);
        size += path.empty() ? 0 : static_cast<std::uint64_t>(status.st_size);
    }
    QVERIFY(size > 64U << 20);
    QCOMPARE(files.totalSize(scratch.path("tree")), size);
    QCOMPARE(files.totalSize(scratch.path("tree/empty/pipe too")), 0U);
    QCOMPARE(files.totalSize(scratch.path("none")), 0U);
    QCOMPARE(scratch.names("tree/many").size(), 3000);
    QCOMPARE(scratch.names("tree/closed"), QStringList({"inner"}));
    QVERIFY(!files.contents(scratch.path("tree/large")));
    QVERIFY(!files.contents(scratch.path("none")));
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
    QVERIFY(file);
    QCOMPARE(file->size, 5U);
    QCOMPARE(file->modificationDate.tv_sec, 1'600'000'000);
    QCOMPARE(file->modificationDate.tv_nsec, 123'456'789);
    QCOMPARE(files.attributes(scratch.path("link"))->size, 4U);
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
        return !scratch.files().contents(scratch.path("tree/closed")) &&
               scratch.files().totalSize(scratch.path("tree")) ==
                   5 + static_cast<std::uint64_t>(status.st_size);
    }));
}

// A program that was started with closed streams gives no file of its own their numbers.
void FileServiceTest::closedStandardStreams()
{
    QVERIFY(waitFor(start([] {
        for (const int stream : {0, 2}) {
            ::close(stream);
        }
        struct stat kept = {};
        struct stat output = {};
        struct stat null = {};
        ::fstat(1, &kept);
        ::stat("/dev/null", &null);
        platform::openStandardStreams();
        struct stat input = {};
        struct stat error = {};
        return ::fstat(0, &input) == 0 && ::fstat(1, &output) == 0 && ::fstat(2, &error) == 0 &&
               input.st_rdev == null.st_rdev && error.st_rdev == null.st_rdev &&
               output.st_ino == kept.st_ino && ::open("/", O_PATH) > 2;
    })));
}

QTEST_GUILESS_MAIN(FileServiceTest)

#include "FileServiceTest.moc"
