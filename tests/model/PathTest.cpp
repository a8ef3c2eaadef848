#include "model/Path.h"

#include "system/platform/FileManager.h"
#include "tests/support/NotificationLog.h"
#include "tests/support/TestVolume.h"

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
    void settersAlwaysNotify();
    void withoutAPathNothingIsTouched();
    void backups();
    void failedBackups();
    void restores();
    void otherProcess();

private:
    TestVolume m_volume;
    std::unique_ptr<Path> m_path;
    NotificationLog m_log;
};

void PathTest::init()
{
    m_volume.clear();
    m_path = std::make_unique<Path>();
    m_path->setPath(file);
    m_log.observe(*m_path, "p");
    m_log.take();
}

void PathTest::backupPath()
{
    Path path;
    QVERIFY(path.path().isNull() && path.pathBak().isNull() && !path.backupDate().isValid());
    QVERIFY(!path.found() && !path.backedUp());
    for (const QString text : {"/a/b.plist", "/a/B", "/a/B/", ""}) {
        path.setPath(text);
        QCOMPARE(path.property("pathBak").toString(), text + ".bak");
    }
}

void PathTest::settersAlwaysNotify()
{
    QCOMPARE(notificationsOfSettingAgain(*m_path),
             QStringList(
                 {"set.path=" + file, "set.found=false", "set.backedUp=false", "set.backupDate="}));
}

void PathTest::withoutAPathNothingIsTouched()
{
    Path path;
    path.setBackedUp(true);
    QCOMPARE(standardOutputOf([&] { QVERIFY(!path.backUp() && !path.restore()); }), QByteArray());
    QVERIFY(path.backedUp());
}

void PathTest::backups()
{
    m_volume.write(file, "live");
    m_volume.setDate(file, 1'600'000'000'123);
    const QStringList made = {"p.backedUp=true", "p.backupDate=2020-09-13T12:26:40.123"};
    QCOMPARE(standardOutputOf([&] { QVERIFY(m_path->backUp()); }), QByteArray());
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
    const QByteArray missing = standardOutputOf([&] { QVERIFY(!m_path->backUp()); });
    QCOMPARE(missing.count('\n'), 1);
    QVERIFY(missing.contains("x.plist") && missing.endsWith('\n'));
    QCOMPARE(m_log.take(), QStringList({"p.backedUp=false", "p.backupDate="}));
    QVERIFY(!m_volume.exists(backup));

    // A backup that nobody knew of is not replaced.
    m_volume.write(file, "live");
    m_volume.write(backup, "stale");
    const QByteArray occupied = standardOutputOf([&] { QVERIFY(!m_path->backUp()); });
    QCOMPARE(occupied.count('\n'), 1);
    QCOMPARE(m_volume.read(backup), "stale");

    // A backup that is gone cannot be removed: nothing is printed, copied or changed.
    QFile::remove(m_volume.host(backup));
    m_path->setBackedUp(true);
    QCOMPARE(standardOutputOf([&] { QVERIFY(!m_path->backUp()); }), QByteArray());
    QVERIFY(m_path->backedUp() && !m_volume.exists(backup));
    QCOMPARE(m_log.take(), QStringList({"p.backedUp=true"})); // as set above
}

void PathTest::restores()
{
    m_path->setFound(true);
    m_path->setBackedUp(true);
    m_log.take();

    m_volume.write(backup, "backup");
    QCOMPARE(standardOutputOf([&] { QVERIFY(!m_path->restore()); }), QByteArray());
    QVERIFY(!m_volume.exists(file));

    m_volume.write(file, "live");
    QVERIFY(m_path->restore());
    QCOMPARE(m_volume.read(file) + m_volume.read(backup), "backupbackup");

    QFile::remove(m_volume.host(backup));
    QCOMPARE(standardOutputOf([&] { QVERIFY(!m_path->restore()); }).count('\n'), 1);
    QVERIFY(m_path->found() && m_path->backedUp());
    QCOMPARE(m_log.take(), QStringList());
}

// While another window works on the location, both operations answer no and leave it alone.
void PathTest::otherProcess()
{
    m_volume.write(file, "live");
    m_volume.write(backup, "backup");
    m_path->setBackedUp(true);
    m_log.take();
    int ends[2] = {-1, -1};
    QCOMPARE(::pipe(ends), 0);
    const int other = ::fork();
    if (other == 0) {
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
    ::kill(other, SIGKILL);
    QCOMPARE(::waitpid(other, nullptr, 0), other);
    QCOMPARE(printed.count("it is being copied or removed by another process.\n"), 2);
    QCOMPARE(m_volume.read(file) + m_volume.read(backup), "livebackup");
    QCOMPARE(m_log.take(), QStringList());
    QVERIFY(m_path->restore() && m_path->backUp());
}

QTEST_GUILESS_MAIN(PathTest)
#include "PathTest.moc"
