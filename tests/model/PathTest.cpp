#include "model/Path.h"

#include "system/platform/FileManager.h"
#include "tests/support/NotificationLog.h"
#include "tests/support/TestVolume.h"

#include <QProcess>
#include <QTest>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace {

const QString file = QStringLiteral("/p/x.plist");
const QString backup = QStringLiteral("/p/x.plist.bak");

} // namespace

class PathTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void backupPath();
    void withoutAPathNothingIsTouched();
    void backups();
    void failedBackups();
    void restores();
    void kindsOfItems();
    void otherProcess();

private:
    TestVolume m_volume;
    std::unique_ptr<Path> m_path;
    NotificationLog m_log;
};

void PathTest::init()
{
    qputenv("TZ", "Asia/Kolkata"); // dates are told in local time, half past others'
    m_volume.clear();
    m_path = std::make_unique<Path>();
    m_path->setPath(file);
    m_log.observe(*m_path, "p");
    m_log.take();
}

void PathTest::backupPath()
{
    Path path;
    QVERIFY(path.pathBak().isNull());
    for (const QString text : {"/a/b.plist", "/a/B", "/a/B/", ""}) {
        path.setPath(text);
        QCOMPARE(path.property("pathBak").toString(), text + ".bak");
    }
}

void PathTest::withoutAPathNothingIsTouched()
{
    for (const bool isBackedUp : {false, true}) {
        Path path;
        path.setBackedUp(isBackedUp);
        QCOMPARE(standardOutputOf([&] { QVERIFY(!path.backUp() && !path.restore()); }), "");
        QCOMPARE(path.backedUp(), isBackedUp);
    }
}

void PathTest::backups()
{
    m_volume.write(file, "live");
    m_volume.setDate(file, 1'600'000'000'123);
    const QStringList made = {"p.backedUp=true", "p.backupDate=2020-09-13T17:56:40.123"};
    QCOMPARE(standardOutputOf([&] { QVERIFY(m_path->backUp()); }), "");
    QCOMPARE(m_volume.read(backup), "live");
    QCOMPARE(m_log.take(), made);

    m_volume.write(backup, "old"); // which is known, and replaced
    QVERIFY(m_path->backUp());
    QCOMPARE(m_volume.read(backup), "live");
    QCOMPARE(m_log.take(), QStringList({"p.backedUp=false", "p.backupDate="}) + made);
}

void PathTest::failedBackups()
{
    // The live item is missing: one line on standard output, and the old backup is gone by then.
    m_volume.write(backup, "old");
    m_path->setBackedUp(true);
    m_log.take();
    QCOMPARE(standardOutputOf([&] { QVERIFY(!m_path->backUp()); }),
             "“x.plist” could not be copied: it does not exist.\n");
    QCOMPARE(m_log.take(), QStringList({"p.backedUp=false", "p.backupDate="}));
    QVERIFY(!m_volume.exists(backup));

    // A backup that nobody knew of is not replaced.
    m_volume.write(file, "live");
    m_volume.write(backup, "stale");
    QCOMPARE(standardOutputOf([&] { QVERIFY(!m_path->backUp()); }),
             "“x.plist.bak” could not be copied: an item with this name exists already.\n");
    QCOMPARE(m_volume.read(backup), "stale");

    // A backup that is gone cannot be removed: nothing is printed, copied or changed.
    QFile::remove(m_volume.host(backup));
    m_path->setBackedUp(true);
    m_log.take();
    QCOMPARE(standardOutputOf([&] { QVERIFY(!m_path->backUp()); }), "");
    QVERIFY(!m_volume.exists(backup));
    QCOMPARE(m_log.take(), QStringList());
}

void PathTest::restores()
{
    m_path->setBackedUp(true);
    m_log.take();

    m_volume.write(backup, "backup");
    QCOMPARE(standardOutputOf([&] { QVERIFY(!m_path->restore()); }), "");
    QVERIFY(!m_volume.exists(file));

    m_volume.write(file, "live");
    QVERIFY(m_path->restore());
    QCOMPARE(m_volume.read(file) + m_volume.read(backup), "backupbackup");

    QFile::remove(m_volume.host(backup));
    QCOMPARE(standardOutputOf([&] { QVERIFY(!m_path->restore()); }),
             "“x.plist.bak” could not be copied: it does not exist.\n");
    QCOMPARE(m_log.take(), QStringList());
}

// An item replaces whatever was there, is copied as what it is, and is never followed.
void PathTest::kindsOfItems()
{
    const auto make = [&](const char *command, const QString &path) {
        return QProcess::execute("sh", {"-c", command, m_volume.host(path)}) == 0;
    };
    const auto isKept = [&](const QString &path) {
        return QProcess::execute("diff", {"-r", "--no-dereference", m_volume.host("/kept"),
                                          m_volume.host(path)}) == 0;
    };
    const char *const makers[] = {"echo file >$0", "mkdir $0; echo inner >$0/inner",
                                  "ln -s target $0", "ln -s nothing $0"};
    for (const char *live : makers) {
        for (const char *old : makers) {
            init();
            m_volume.write("/p/target", "target");
            QVERIFY(make(live, "/kept") && make(live, file) && make(old, backup));
            QVERIFY(make("touch -h -d @1600000000 $0", file));
            m_path->setBackedUp(true);
            QVERIFY2(m_path->backUp() && isKept(backup), live);
            QCOMPARE(m_path->backupDate().toSecsSinceEpoch(), 1'600'000'000);
            QCOMPARE(QProcess::execute("rm", {"-r", m_volume.host(file)}), 0);
            QVERIFY(make(old, file));
            QVERIFY2(m_path->restore() && isKept(file) && isKept(backup), live);
        }
    }
}

// While another window works on the location, both operations answer no and leave it alone.
void PathTest::otherProcess()
{
    m_volume.write("/p/other", "other");
    m_volume.write(file, "live");
    m_volume.write(backup, "backup");
    int ends[2] = {-1, -1};
    QCOMPARE(::pipe(ends), 0);
    const int process = ::fork();
    if (process == 0) {
        platform::LocationLock lock;
        const bool isLocked =
            platform::FileManager::defaultManager().lockItemAtPath(backup, lock, nullptr);
        const bool isTold = isLocked && ::write(ends[1], "!", 1) == 1;
        ::pause();
        ::_exit(isTold ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    char told = 0;
    QCOMPARE(::read(ends[0], &told, 1), 1);
    const QByteArray printed = standardOutputOf([&] {
        QVERIFY(!m_path->backUp());
        QVERIFY(!m_path->restore());
    });
    Path other;
    other.setPath("/p/other");
    const bool isOtherBackedUp = other.backUp();
    ::kill(process, SIGKILL);
    QCOMPARE(::waitpid(process, nullptr, 0), process);
    QVERIFY(isOtherBackedUp);
    QCOMPARE(printed.count("it is being copied or removed by another process.\n"), 2);
    QCOMPARE(m_volume.read(file) + m_volume.read(backup), "livebackup");
    QCOMPARE(m_log.take(), QStringList());
    QVERIFY(m_path->restore());
}

QTEST_GUILESS_MAIN(PathTest)
#include "PathTest.moc"
