#include "model/Path.h"
#include "tests/support/NotificationLog.h"
#include "tests/support/TestVolume.h"

#include <QTest>

namespace {

const QString file = QStringLiteral("/p/x.plist");
const QString backup = QStringLiteral("/p/x.plist.bak");
constexpr qint64 oldDate = 1'600'000'000'123;

} // namespace

class PathTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void backupPath();
    void settersAlwaysNotify();
    void withoutAPathNothingIsTouched();
    void firstBackup();
    void backupReplacesTheKnownOne();
    void failedBackups();
    void restoreAgainAndAgain();
    void failedRestores();

private:
    TestVolume m_volume;
};

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
    Path path;
    NotificationLog log;
    log.observe(path, "p");
    path.setPath("/a");
    path.setPath("/a");
    path.setFound(false);
    path.setBackedUp(false);
    path.setBackupDate({});
    QCOMPARE(log.take(), QStringList({"p.path=/a", "p.path=/a", "p.found=false", "p.backedUp=false",
                                      "p.backupDate="}));
}

void PathTest::withoutAPathNothingIsTouched()
{
    Path path;
    path.setBackedUp(true);
    QCOMPARE(standardOutputOf([&] { QVERIFY(!path.backUp() && !path.restore()); }), QByteArray());
    QVERIFY(path.backedUp());
}

void PathTest::firstBackup()
{
    m_volume.write(file, "live");
    m_volume.setDate(file, oldDate);
    Path path;
    path.setPath(file);
    NotificationLog log;
    log.observe(path, "p");
    QCOMPARE(standardOutputOf([&] { QVERIFY(path.backUp()); }), QByteArray());
    QCOMPARE(m_volume.read(backup), "live");
    QCOMPARE(path.backupDate().toMSecsSinceEpoch(), oldDate);
    QCOMPARE(log.take(), QStringList({"p.backedUp=true", "p.backupDate=2020-09-13T12:26:40.123"}));
}

void PathTest::backupReplacesTheKnownOne()
{
    m_volume.write("/p/Folder/new", "new");
    m_volume.write("/p/Folder.bak/old", "old");
    Path path;
    path.setPath("/p/Folder");
    path.setBackedUp(true);
    path.setBackupDate(QDateTime::currentDateTime());
    m_volume.setDate("/p/Folder", oldDate);
    NotificationLog log;
    log.observe(path, "p");
    QVERIFY(path.backUp());
    QVERIFY(m_volume.exists("/p/Folder.bak/new") && !m_volume.exists("/p/Folder.bak/old"));
    QCOMPARE(log.take(), QStringList({"p.backedUp=false", "p.backupDate=", "p.backedUp=true",
                                      "p.backupDate=2020-09-13T12:26:40.123"}));
}

void PathTest::failedBackups()
{
    Path path;
    path.setPath(file);
    NotificationLog log;
    log.observe(path, "p");

    // The live item is missing: one line on standard output, and the old backup is gone by then.
    m_volume.write(backup, "old");
    path.setBackedUp(true);
    log.take();
    const QByteArray missing = standardOutputOf([&] { QVERIFY(!path.backUp()); });
    QCOMPARE(missing.count('\n'), 1);
    QVERIFY(missing.contains("x.plist") && missing.endsWith('\n'));
    QCOMPARE(log.take(), QStringList({"p.backedUp=false", "p.backupDate="}));
    QVERIFY(!m_volume.exists(backup));

    // A backup that nobody knew of is not replaced.
    m_volume.write(file, "live");
    m_volume.write(backup, "stale");
    const QByteArray occupied = standardOutputOf([&] { QVERIFY(!path.backUp()); });
    QCOMPARE(occupied.count('\n'), 1);
    QCOMPARE(m_volume.read(backup), "stale");
    QCOMPARE(log.take(), QStringList());

    // A backup that is gone cannot be removed: nothing is printed, copied or changed.
    QFile::remove(m_volume.host(backup));
    path.setBackedUp(true);
    log.take();
    QCOMPARE(standardOutputOf([&] { QVERIFY(!path.backUp()); }), QByteArray());
    QVERIFY(path.backedUp() && !m_volume.exists(backup));
    QCOMPARE(log.take(), QStringList());
}

void PathTest::restoreAgainAndAgain()
{
    m_volume.write("/p/Folder.bak/kept", "kept");
    Path path;
    path.setPath("/p/Folder");
    NotificationLog log;
    log.observe(path, "p");
    for (const QString added : {"/p/Folder/first", "/p/Folder/second"}) {
        m_volume.write(added, "x");
        QVERIFY(path.restore());
        QCOMPARE(m_volume.read("/p/Folder/kept"), "kept");
        QVERIFY(!m_volume.exists(added) && m_volume.exists("/p/Folder.bak/kept"));
    }
    QCOMPARE(log.take(), QStringList());
}

void PathTest::failedRestores()
{
    Path path;
    path.setPath(file);
    path.setFound(true);
    path.setBackedUp(true);

    m_volume.write(backup, "backup");
    QCOMPARE(standardOutputOf([&] { QVERIFY(!path.restore()); }), QByteArray());
    QVERIFY(!m_volume.exists(file) && m_volume.exists(backup));

    QFile::remove(m_volume.host(backup));
    m_volume.write(file, "live");
    QCOMPARE(standardOutputOf([&] { QVERIFY(!path.restore()); }).count('\n'), 1);
    QVERIFY(path.found() && path.backedUp());
}

QTEST_GUILESS_MAIN(PathTest)
#include "PathTest.moc"
