#include "ui/platform/WorkObserver.h"
#include "ui/platform/Activity.h"
#include "ui/platform/InputGate.h"

#include <QSignalSpy>
#include <QTest>

#include <optional>

using platform::Activity;
using platform::InputGate;
using platform::Progress;
using platform::WorkObserver;

class WorkObserverTest : public QObject
{
    Q_OBJECT

private slots:
    void longWork();
    void theBarIsHonest();

private:
    static constexpr int longWait = 310; // milliseconds, until something is told, and anew

    static Progress copying(std::uint64_t items, std::uint64_t totalItems)
    {
        Progress progress;
        progress.items = items;
        progress.totalItems = totalItems;
        return progress;
    }
};

void WorkObserverTest::longWork()
{
    WorkObserver observer;
    const QSignalSpy told(&observer, &WorkObserver::progressed);
    const QSignalSpy ended(&observer, &WorkObserver::ended);
    const Activity activity("Backing up");
    std::optional<InputGate::Work> command(std::in_place);
    observer.workProgressed(copying(1, 0));
    command.reset();
    QCOMPARE(told.count() + ended.count(), 0); // short work flashes nothing

    command.emplace();
    Progress progress = copying(1200, 0);
    progress.bytes = 2500000;
    observer.workProgressed(progress);
    QTest::qSleep(longWait);
    observer.workProgressed(progress);
    QCOMPARE(told.count(), 1);
    QCOMPARE(told.last(), QVariantList({"Backing up: 1,200 items, 2.5 MB", -1}));
    observer.workProgressed(progress);
    QCOMPARE(told.count(), 1); // not each time
    progress.activity = Progress::Activity::Removing;
    observer.workProgressed(progress); // but at once what is new
    QCOMPARE(told.last().first(), "Backing up: removing what it replaces: 1,200 items");
    observer.workEnded(); // a part of the command
    QCOMPARE(ended.count(), 0);
    command.reset();
    QCOMPARE(ended.count(), 1);
}

void WorkObserverTest::theBarIsHonest()
{
    WorkObserver observer;
    const QSignalSpy told(&observer, &WorkObserver::progressed);
    const InputGate::Work command;
    observer.workProgressed(copying(0, 0));
    Progress progress = copying(50, 100);
    progress.elapsed = std::chrono::seconds(60);
    const auto barAfter = [&](const Progress &next) {
        QTest::qSleep(longWait);
        observer.workProgressed(next);
        return told.last().last().toInt();
    };
    QCOMPARE(barAfter(progress), WorkObserver::wholeBar / 2);
    QCOMPARE(told.last().first(),
             "Copying: 50 of 100 items, 0 bytes of 0 bytes, about 60 seconds left");
    QCOMPARE(barAfter(copying(51, 200)), WorkObserver::wholeBar / 2); // more has come in
    const int nearlyAll = barAfter(copying(300, 200));
    QVERIFY(nearlyAll > WorkObserver::wholeBar * 9 / 10 && nearlyAll < WorkObserver::wholeBar);
    QCOMPARE(told.last().first(), "Copying: 300 of 300 items, 0 bytes of 0 bytes");
    progress.activity = Progress::Activity::Flushing;
    QCOMPARE(barAfter(progress), nearlyAll);
    QCOMPARE(told.last().first(), "Flushing to the disk");
    const QSignalSpy ended(&observer, &WorkObserver::ended);
    const InputGate::Pause message;
    QCOMPARE(ended.count(), 1); // nothing is flushed any more under a message
}

QTEST_MAIN(WorkObserverTest)
#include "WorkObserverTest.moc"
