#include "system/platform/Task.h"
#include "tests/support/TestVolume.h"
#include "ui/platform/Activity.h"
#include "ui/platform/DesktopSession.h"
#include "ui/platform/DiskStatus.h"
#include "ui/platform/InputGate.h"
#include "ui/platform/WorkObserver.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

#include <X11/ICE/ICElib.h>

#include <optional>

using platform::Activity;
using platform::DiskStatus;
using platform::InputGate;
using platform::Progress;
using platform::WorkObserver;

/// What the window says of the disk, and of long work.
class StatusTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void problemsOfADisk();
    void longWork();
    void theBarIsHonest();
    void theSessionManagerGoes();

private:
    static constexpr int longWait = 310; // milliseconds, until something is told, and anew

    void makeLibrary(const QString &user) const
    {
        QDir().mkpath(m_volume.host("/Users/" + user + "/Library"));
    }
    static Progress progress(Progress::Activity activity, std::uint64_t items,
                             std::uint64_t totalItems = 0)
    {
        Progress progress;
        progress.activity = activity;
        progress.items = items;
        progress.totalItems = totalItems;
        return progress;
    }

    TestVolume m_volume;
};

void StatusTest::problemsOfADisk()
{
    QCOMPARE(DiskStatus().problem(),
             "There is no library of anna on volume, nor of anyone else. Is it a Mac's disk?");
    for (const QString user : {"mira", "bob", "Shared", "guest", ".hidden"}) {
        makeLibrary(user);
    }
    QCOMPARE(DiskStatus().problem(),
             "There is no library of anna on volume. The users who have one: bob, mira.");
    makeLibrary("Anna"); // the same on a Mac
    QVERIFY(DiskStatus().problem().isNull());

    const QString root = m_volume.host({});
    QVERIFY(QDir().rename(root, root + ".moved"));
    QCOMPARE(DiskStatus().problem(),
             "There is no disk at " + root + ". Is it connected and mounted?");
    QVERIFY(QFile::copy("/proc/self/comm", root));
    QVERIFY(DiskStatus().problem().startsWith("The disk at " + root + " cannot be read: "));
    QVERIFY(QFile::remove(root));
    QVERIFY(QDir().rename(root + ".moved", root));

    const QDir tools(m_volume.host("/Users/Anna"));
    QVERIFY(QFile::link("/bin/true", tools.filePath("mdfind")));
    platform::Task::setToolFolder(tools.path());
    QCOMPARE(DiskStatus().problem(), "A part of this program is missing: " + tools.filePath("ps") +
                                         ". Please install it again.");
}

void StatusTest::longWork()
{
    WorkObserver observer;
    const QSignalSpy told(&observer, &WorkObserver::progressed);
    const QSignalSpy ended(&observer, &WorkObserver::ended);
    const Activity activity("Backing\nup");
    std::optional<InputGate::Work> command(std::in_place);
    observer.workProgressed(progress(Progress::Activity::Copying, 1));
    command.reset();
    QCOMPARE(told.count() + ended.count(), 0); // short work flashes nothing

    command.emplace();
    Progress copying = progress(Progress::Activity::Copying, 1200);
    copying.bytes = 2500000;
    observer.workProgressed(copying);
    QTest::qSleep(longWait);
    observer.workProgressed(copying);
    observer.workProgressed(copying); // not each time
    QCOMPARE(told.count(), 1);
    QCOMPARE(told.last(), QVariantList({"Backing up: 1,200 items, 2.5 MB", -1}));
    // But at once what is new.
    observer.workProgressed(progress(Progress::Activity::Removing, 1200));
    QCOMPARE(told.last().first(), "Backing up: removing what it replaces: 1,200 items");
    observer.workProgressed(progress(Progress::Activity::Flushing, 0));
    QCOMPARE(told.last().first(), "Backing up: flushing to the disk");
    observer.workEnded(); // a part of the command
    QCOMPARE(ended.count(), 0);
    command.reset();
    QCOMPARE(ended.count(), 1);
}

void StatusTest::theBarIsHonest()
{
    WorkObserver observer;
    const QSignalSpy told(&observer, &WorkObserver::progressed);
    const InputGate::Work command;
    observer.workProgressed({});
    const auto barAfter = [&](const Progress &next) {
        QTest::qSleep(longWait);
        observer.workProgressed(next);
        return told.last().last().toInt();
    };
    Progress half = progress(Progress::Activity::Copying, 50, 100);
    half.elapsed = std::chrono::seconds(60);
    QCOMPARE(barAfter(half), WorkObserver::wholeBar / 2);
    QCOMPARE(told.last().first(),
             "Copying: 50 of 100 items, 0 bytes of 0 bytes, about 60 seconds left");
    // More has come in.
    QCOMPARE(barAfter(progress(Progress::Activity::Copying, 51, 200)), WorkObserver::wholeBar / 2);
    const int nearlyAll = barAfter(progress(Progress::Activity::Copying, 300, 200));
    QVERIFY(nearlyAll > WorkObserver::wholeBar * 9 / 10 && nearlyAll < WorkObserver::wholeBar);
    QCOMPARE(told.last().first(), "Copying: 300 of 300 items, 0 bytes of 0 bytes");
    QCOMPARE(barAfter(progress(Progress::Activity::Flushing, 0)), nearlyAll);
    const QSignalSpy ended(&observer, &WorkObserver::ended);
    const InputGate::Pause message;
    QCOMPARE(ended.count(), 1); // nothing is flushed any more under a message
}

void StatusTest::theSessionManagerGoes()
{
    platform::watchSessionManager();
    const InputGate::Work command;
    ::IceSetIOErrorHandler(nullptr)(nullptr); // which libICE calls and then ends no process
    QVERIFY(InputGate::shared().isEndRequested());
}

QTEST_MAIN(StatusTest)
#include "StatusTest.moc"
