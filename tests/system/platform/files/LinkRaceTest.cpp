#include "system/platform/files/LocationLock.h"
#include "tests/system/platform/files/FileTree.h"

#include <QProcess>
#include <QTest>

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <latch>
#include <thread>

/// Links that lead out of the volume, exchanged with other items at any moment.
class LinkRaceTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void exchanged_data();
    void exchanged();

private:
    std::string host(const std::string &path) const { return m_scratch.path("volume/" + path); }
    void renewTree() const;
    bool readsSecret(const std::string &tree) const;
    bool holdsSecret() const;

    static constexpr std::size_t secretSize = 1 << 20; // more than all that is on the volume

    ScratchFolder m_scratch{ScratchFolder::Medium::Memory};
    platform::Volume m_volume{(makeFolder(host("")), host("")), "anna"};
    platform::FileService m_files{m_volume};
    Snapshot m_outside;
};

void LinkRaceTest::initTestCase()
{
    for (const char *name : {"outside", "outside/tree", "outside/tree/inner"}) {
        makeFolder(m_scratch.path(name), 0750);
        writeFile(m_scratch.path(name) + "/secret", std::string(secretSize, 's'));
    }
    writeFile(m_scratch.path("outside/tree/file"), std::string(secretSize, 's'));
    QProcess::execute("chown", {"-R", "65534", QString::fromStdString(m_scratch.path())});
    m_outside = snapshot(m_scratch.path("outside"));
    // The work is an ordinary user's, who also meets folders that are closed to himself.
    QVERIFY(::getuid() != 0 || ::setuid(65534) == 0);
    ::prctl(PR_SET_DUMPABLE, 1); // which that takes away, and a search for leaks needs
}

void LinkRaceTest::renewTree() const
{
    const auto leftovers = m_files.contents("/");
    for (const std::string &name : *leftovers) {
        const auto error = m_files.remove('/' + name);
        QCOMPARE(error ? error->description() : std::string(), std::string());
    }
    for (const char *name : {"backup", "place", "place/tree", "place/tree/inner"}) {
        makeFolder(host(name));
    }
    for (const char *name : {"file", "1", "2", "3", "4", "5", "6", "7", "8", "9"}) {
        writeFile(host("place/tree/") + name, "file");
    }
    // A link with two names, which makes use of the hidden folder for those.
    std::filesystem::create_symlink(m_scratch.path("outside/secret"), host("place/tree/up"));
    std::filesystem::create_hard_link(host("place/tree/up"), host("place/tree/inner/up"));
}

bool LinkRaceTest::readsSecret(const std::string &tree) const
{
    const bool isFound = m_files.exists(tree + "/inner/secret");
    const auto names = m_files.contents(tree + "/inner");
    const auto file = m_files.attributes(tree + "/file");
    return isFound || (names && std::ranges::count(*names, "secret") > 0) ||
           (file && file->size == secretSize) || m_files.totalSize(tree) >= secretSize;
}

bool LinkRaceTest::holdsSecret() const
{
    using namespace std::filesystem;
    const recursive_directory_iterator items(host(""), directory_options::skip_permission_denied);
    return std::any_of(begin(items), end(items), [](const directory_entry &item) {
        return item.path().filename() == "secret" ||
               (!item.is_symlink() && item.is_regular_file() && item.file_size() == secretSize);
    });
}

void LinkRaceTest::exchanged_data()
{
    QTest::addColumn<std::string>("item");
    QTest::addColumn<std::string>("target");
    const auto row = [](const char *name, const std::string &item, const char *target) {
        QTest::newRow(name) << item << "outside" + std::string(target);
    };
    const auto hidden = [](const char *name, const std::string &suffix) {
        return "/.tarnwell-" + platform::locationHash(name) + ".0" + suffix;
    };
    row("path of the source", "place", "");
    row("path of the copy", "backup", "");
    row("top folder", "place/tree", "/tree");
    row("folder", "place/tree/inner", "/tree/inner");
    row("file", "place/tree/file", "/secret");
    row("work folder", "backup" + hidden("copy", ""), "");
    row("unfinished copy", "backup" + hidden("copy", "/item"), "/tree");
    row("folder being made", "backup" + hidden("copy", "/item/inner"), "/tree/inner");
    row("hard links", "backup" + hidden("copy", "/links"), "/tree");
    row("unfinished removal", "place" + hidden("tree", "/item"), "/tree");
    row("folder being removed", "place" + hidden("tree", "/item/inner"), "/tree/inner");
    row("closed folder being removed", "place" + hidden("tree", "/item/inner"), "/tree/inner");
}

void LinkRaceTest::exchanged()
{
    QFETCH(std::string, item);
    QFETCH(std::string, target);
    const bool isClosed = std::string_view(QTest::currentDataTag()).starts_with("closed");
    constexpr int rounds = 200;
    const std::string path = host(item);
    const std::array links = {host("relative"), host("absolute")};
    const std::string outside = m_scratch.path(target);
    std::atomic<int> exchanges = 0;
    int copies = 0;
    int removals = 0;
    for (int round = 0; round < rounds; ++round) {
        renewTree();
        ::chmod(host("place/tree/inner").c_str(), isClosed ? 0300 : 0755);
        std::filesystem::create_symlink("../../../../../../../../../../.." + outside, links[0]);
        std::filesystem::create_symlink(outside, links[1]);
        std::latch isRunning(1);
        std::jthread exchanger([&](const std::stop_token &stop) {
            isRunning.count_down();
            for (unsigned int i = 0; !stop.stop_requested(); ++i) {
                exchanges += ::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, links[i % 2].c_str(),
                                         RENAME_EXCHANGE) == 0;
            }
        });
        isRunning.wait();
        // Items are found in two ways, by exact names and by others that mean the same.
        const bool isExact = round % 2 == 0;
        const std::string tree = isExact ? "/place/tree" : "/PLACE/Tree";
        const std::string backup = isExact ? "/backup" : "/BACKUP";
        const bool isRead = readsSecret(tree);
        copies += !m_files.copy(tree, backup + "/copy");
        m_files.copy(tree + "/file", backup + "/file");
        removals += !m_files.remove(tree);
        exchanger = {}; // stops it
        QVERIFY(!isRead && !holdsSecret());
    }
    QCOMPARE(difference(m_outside, snapshot(m_scratch.path("outside"))), QString());
    qInfo("%d exchanges, %d copies, %d removals", exchanges.load(), copies, removals);
    // How what is hidden fares, whether it is met at all and whether it comes through, depends on
    // the processors.
    const bool isHidden = item.find("/.") != std::string::npos;
    QVERIFY(isHidden || (exchanges > 0 && copies > 0 && removals > 0));
}

QTEST_GUILESS_MAIN(LinkRaceTest)

#include "LinkRaceTest.moc"
