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
    void theSessionManagerGoes();

private:
    void makeLibrary(const QString &user) const
    {
        QDir().mkpath(m_volume.host("/Users/" + user + "/Library"));
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
    const Progress copying = {
        .activity = Progress::Activity::Copying, .items = 1200, .bytes = 2500000};
    observer.workProgressed(copying);
    command.reset();
    QCOMPARE(told.count() + ended.count(), 0); // short work flashes nothing

    command.emplace();
    observer.workProgressed(copying);
    QTest::qSleep(310);
    observer.workProgressed(copying);
    observer.workProgressed(copying); // not each time
    QCOMPARE(told.count(), 1);
    QCOMPARE(told.last(), QVariantList({"Backing up: 1,200 items, 2.5 MB", -1}));

    // What is new is told at once. The bar does not go back when more has come in.
    const auto textOf = [&](const Progress &progress) {
        observer.workProgressed(progress);
        return told.last().first().toString();
    };
    const auto bar = [&] { return told.last().last().toInt(); };
    const Progress removing = {.activity = Progress::Activity::Removing, .items = 1200};
    Progress half = {.activity = Progress::Activity::Copying, .items = 50, .totalItems = 100};
    half.elapsed = std::chrono::seconds(60);
    QCOMPARE(textOf(removing), "Backing up: removing what it replaces: 1,200 items");
    QCOMPARE(textOf(half),
             "Backing up: 50 of 100 items, 0 bytes of 0 bytes, about 60 seconds left");
    QCOMPARE(bar(), WorkObserver::wholeBar / 2);
    QCOMPARE(textOf({.activity = Progress::Activity::Flushing}),
             "Backing up: flushing to the disk");
    half.totalItems = 200;
    textOf(half);
    QCOMPARE(bar(), WorkObserver::wholeBar / 2);
    textOf(removing);
    half.items = 300;
    QCOMPARE(textOf(half), "Backing up: 300 of 300 items, 0 bytes of 0 bytes, a few seconds left");
    QVERIFY(bar() > WorkObserver::wholeBar * 9 / 10 && bar() < WorkObserver::wholeBar);

    observer.workEnded(); // a part of the command
    QCOMPARE(ended.count(), 0);
    const InputGate::Pause message;
    QCOMPARE(ended.count(), 1); // nothing is copied any more under a message
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
