#include "model/Path.h"

#include "system/platform/FileManager.h"
#include "tests/support/NotificationLog.h"
#include "tests/support/TestVolume.h"

#include <QProcess>
#include <QTemporaryFile>
#include <QTest>

#include <cstdio>
#include <unistd.h>

namespace {

const QString file = QStringLiteral("/p/x.plist");
const QString backup = QStringLiteral("/p/x.plist.bak");
const QString home = QStringLiteral("/Users/anna/Library/");
const QString preferences = home + "Preferences/vnd.a.plist";
const QString data = home + "Application Support/vnd.a/file";

} // namespace

/// What is done at a location, also by the program build/bench/records as a user of it runs it.
class PathTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void withAndWithoutAPath();
    void backups();
    void restores();
    void listOfRecords();
    void commandsOfRecords();

private:
    QStringList results(bool (Path::*operation)());

    /// The exit status, and what was written to standard output.
    static std::pair<int, QByteArray> records(const QStringList &arguments)
    {
        QProcess process;
        process.start("env",
                      QStringList({"-u", "QT_QPA_PLATFORM", "-u", "DISPLAY", "TZ=Asia/Kolkata",
                                   QCoreApplication::applicationDirPath() + "/../bench/records"}) +
                          arguments);
        process.waitForFinished();
        return {process.exitCode(), process.readAllStandardOutput()};
    }

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
}

/// What an operation answers, prints and notifies. What it has not flushed is not printed.
QStringList PathTest::results(bool (Path::*operation)())
{
    m_log.take();
    QTemporaryFile output;
    output.open();
    std::fflush(stdout);
    const int original = ::dup(STDOUT_FILENO);
    ::dup2(output.handle(), STDOUT_FILENO);
    const bool isDone = (m_path.get()->*operation)();
    ::dup2(original, STDOUT_FILENO);
    ::close(original);
    output.seek(0);
    return QStringList({isDone ? "yes" : "no", output.readAll()}) + m_log.take();
}

void PathTest::withAndWithoutAPath()
{
    for (const QString text : {"/a/b.plist", "/a/B", "/a/B/", ""}) {
        m_path->setPath(text);
        QCOMPARE(m_path->property("pathBak").toString(), text + ".bak");
    }
    m_path->setPath({});
    QVERIFY(m_path->pathBak().isNull());
    for (const bool isBackedUp : {false, true}) {
        m_path->setBackedUp(isBackedUp);
        QCOMPARE(results(&Path::backUp), QStringList({"no", ""}));
        QCOMPARE(results(&Path::restore), QStringList({"no", ""}));
    }
}

void PathTest::backups()
{
    const QStringList forgotten = {"p.backedUp=false", "p.backupDate="};
    const QStringList noted = {"p.backedUp=true", "p.backupDate=2020-09-13T17:56:40.123"};
    m_volume.write(file, "live");
    m_volume.setDate(file, "1600000000.123");
    QCOMPARE(results(&Path::backUp), QStringList({"yes", ""}) + noted);
    QCOMPARE(m_volume.read(backup), "live");
    m_volume.write(backup, "old"); // which is known, and replaced
    QCOMPARE(results(&Path::backUp), QStringList({"yes", ""}) + forgotten + noted);
    QCOMPARE(m_volume.read(backup), "live");

    // The live item is missing: the old backup is gone by then.
    QFile::remove(m_volume.host(file));
    QCOMPARE(results(&Path::backUp),
             QStringList({"no", "“x.plist” could not be copied: it does not exist.\n"}) +
                 forgotten);
    QVERIFY(!m_volume.exists(backup));

    // A backup that nobody knew of is not replaced.
    m_volume.write(file, "live");
    m_volume.write(backup, "stale");
    QCOMPARE(results(&Path::backUp),
             QStringList({"no", "“x.plist.bak” could not be copied: an item with this name exists "
                                "already.\n"}));
    QCOMPARE(m_volume.read(backup), "stale");

    // A backup that is gone cannot be removed: nothing is printed, copied or changed.
    QFile::remove(m_volume.host(backup));
    m_path->setBackedUp(true);
    QCOMPARE(results(&Path::backUp), QStringList({"no", ""}));
    QVERIFY(!m_volume.exists(backup));
}

void PathTest::restores()
{
    m_volume.write(backup, "backup");
    QCOMPARE(results(&Path::restore), QStringList({"no", ""}));
    QVERIFY(!m_volume.exists(file));
    m_volume.write(file, "live");
    QCOMPARE(results(&Path::restore), QStringList({"yes", ""}));
    QCOMPARE(m_volume.read(file) + m_volume.read(backup), "backupbackup");
    QFile::remove(m_volume.host(backup));
    QCOMPARE(results(&Path::restore),
             QStringList({"no", "“x.plist.bak” could not be copied: it does not exist.\n"}));
}

void PathTest::listOfRecords()
{
    m_volume.writeBundle("/Applications/tab\t.app", {{"CFBundleName", "b\tb\nc\\"},
                                                     {"CFBundleIdentifier", "vnd.a"},
                                                     {"CFBundleShortVersionString", "-"}});
    m_volume.write("/Applications/tab\t.app/Contents/large", QByteArray(12'340'000, 0));
    m_volume.write(preferences, "x");
    m_volume.write(preferences + ".bak", "y");
    m_volume.setDate(preferences + ".bak", "1700000000.5");
    QByteArrayList fields = records({"list"}).second.split('\t');
    QVERIFY(fields.takeLast().toInt() > 0); // the width of an icon, which stands in for its own
    QCOMPARE(fields,
             QByteArrayList({"b\\tb\\nc\\\\", "vnd.a", "\\-", "12.3 MB", "/Applications/tab\\t.app",
                             "/users/anna/Library/Preferences/vnd.a.plist", "2023-11-14T22:13:20Z",
                             "-", "-"}));
}

void PathTest::commandsOfRecords()
{
    m_volume.writeBundle("/A.app", {{"CFBundleName", "A"}, {"CFBundleIdentifier", "vnd.a"}});
    m_volume.write(data, "live");
    const std::tuple<int, QStringList> commands[] = {{1, {"restore", "data", "/A.app"}},
                                                     {1, {"backup", "prefs", "/A.app"}},
                                                     {0, {"backup", "data", "/A.app"}},
                                                     {0, {"restore", "data", "/A.app"}},
                                                     {1, {"backup", "data", "/missing.app"}},
                                                     {2, {"backup", "icon", "/A.app"}},
                                                     {2, {"lists"}}};
    for (const auto &[status, arguments] : commands) {
        QCOMPARE(records(arguments), std::pair(status, QByteArray()));
        QCOMPARE(m_volume.read(data), "live");
    }

    // What another process works on is left alone.
    m_volume.writeBundle("/B.app", {{"CFBundleName", "B"}, {"CFBundleIdentifier", "vnd.b"}});
    m_volume.write(home + "Application Support/vnd.b/file", "other");
    m_volume.write(data, "newer");
    m_volume.write(preferences, "x");
    const QString dataBackup = home + "Application Support/vnd.a.bak";
    const platform::FileManager &manager = platform::FileManager::defaultManager();
    platform::LocationLock locks[2];
    QVERIFY(manager.lockItemAtPath(dataBackup, locks[0], nullptr));
    QVERIFY(manager.lockItemAtPath(preferences, locks[1], nullptr));
    for (const QStringList &command :
         {QStringList({"backup", "data"}), {"restore", "data"}, {"backup", "prefs"}}) {
        const auto [status, printed] = records(command + QStringList("/A.app"));
        QVERIFY(status == 1 && printed.endsWith("copied or removed by another process.\n"));
        QCOMPARE(printed.count('\n'), 1);
        QCOMPARE(m_volume.read(data) + m_volume.read(dataBackup + "/file"), "newerlive");
    }
    QCOMPARE(records({"backup", "data", "/B.app"}).first, 0);
}

QTEST_GUILESS_MAIN(PathTest)
#include "PathTest.moc"
