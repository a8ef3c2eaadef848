#include "system/platform/files/StandardStreams.h"
#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <fcntl.h>

#include <cerrno>
#include <map>

/// What the service tells of items, and what it calls them.
class FileServiceTest : public QObject
{
    Q_OBJECT

private slots:
    void contentsAndSize();
    void printableNames();
    void closedStandardStreams();
};

void FileServiceTest::contentsAndSize()
{
    const ScratchFolder scratch;
    const platform::FileService &files = scratch.files();
    QVERIFY(isDoneByOrdinaryUser([&] {
        constexpr int many = 3000; // more than are listed at once
        std::uint64_t size = 0;
        makeFolder(scratch.path("tree/many"));
        for (int i = 0; i < many; ++i) {
            const std::string bytes(static_cast<std::size_t>(i), 'x');
            writeFile(scratch.path("tree/many/" + std::to_string(i)), bytes);
            size += bytes.size();
        }
        makeLink("many", scratch.path("tree/link"));
        makeFolder(scratch.path("tree/closed"), 0);
        for (const char *item : {"tree/many", "tree/link", "tree/closed"}) {
            size += static_cast<std::uint64_t>(statusOf(scratch.path(item)).st_size);
        }
        return scratch.names("tree/many").size() == many &&
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
        {"a\nb\tc\x7f", "a\\nb\\x09c\\x7F"},
        {"\xc2\x85", "\\xC2\\x85"}, // a control of Latin-1
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
    for (const auto &[error, words] :
         std::map<int, std::string>{{ENOSPC, "the disk is full"},
                                    {EDQUOT, "the disk quota is used up"},
                                    {EROFS, "the disk is read-only"},
                                    {987654, "error 987654"}}) {
        QCOMPARE(platform::errorReason(error), words);
    }
}

// A program that was started with closed streams gives no file of its own their numbers.
void FileServiceTest::closedStandardStreams()
{
    QVERIFY(waitFor(start([] {
        const auto isNull = [](int stream) {
            struct stat status = {};
            return ::fstat(stream, &status) == 0 && status.st_rdev == statusOf("/dev/null").st_rdev;
        };
        struct stat before = {};
        struct stat after = {};
        ::fstat(1, &before);
        ::close(0);
        ::close(2);
        platform::openStandardStreams();
        return isNull(0) && isNull(2) && ::fstat(1, &after) == 0 && before.st_ino == after.st_ino &&
               ::open("/", O_PATH) > 2;
    })));
}

QTEST_GUILESS_MAIN(FileServiceTest)

#include "FileServiceTest.moc"
