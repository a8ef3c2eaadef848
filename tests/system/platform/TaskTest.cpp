#include "system/platform/Task.h"
#include "tests/support/TestVolume.h"

#include <QTest>

using platform::linesOfText;
using platform::Task;

class TaskTest : public QObject
{
    Q_OBJECT

private slots:
    void lines();
    void longOutput();
    void endlessOutput();
    void inheritsTheEnvironment();
    void exitStatus();

private:
    TestVolume m_volume;
};

void TaskTest::lines()
{
    QCOMPARE(linesOfText(""), QStringList({""}));
    QCOMPARE(linesOfText("a"), QStringList({"a"}));
    QCOMPARE(linesOfText("a\r\nb\n\n"), QStringList({"a", "", "b", "", ""}));
    QCOMPARE(linesOfText("a\vb\fc\u0085d\u2028e\u2029f\tg"),
             QStringList({"a", "b", "c", "d", "e", "f\tg"}));
}

void TaskTest::longOutput()
{
    // Far more than a pipe holds.
    m_volume.installTool("tool", "seq 1 300000");
    const QStringList lines = Task::outputLines("/usr/bin/tool", {});
    QCOMPARE(lines.size(), 300001);
    QCOMPARE(lines[299999], "300000");

    m_volume.installTool("tool", "printf 'a\\0b\\nno line break'");
    QCOMPARE(Task::outputLines("/usr/bin/tool", {}),
             QStringList({QString::fromLatin1("a\0b", 3), "no line break"}));
}

void TaskTest::endlessOutput()
{
    for (const char *script : {"exec yes", "yes | head -c 67200000"}) { // the second one ends well
        m_volume.installTool("tool", script);
        QCOMPARE(Task::outputLines("/usr/bin/tool", {}), QStringList());
    }
}

void TaskTest::inheritsTheEnvironment()
{
    m_volume.installTool("tool", "printf '%s|%s|%s' \"$TARNWELL_USER\" \"$PWD\" \"$*\"");
    QCOMPARE(Task::outputLines("/bin/tool", {"a b", "c"}),
             QStringList({"anna|" + QDir::currentPath() + "|a b c"}));
}

void TaskTest::exitStatus()
{
    m_volume.installTool("tool", "echo partial; exit 3");
    Task task;
    task.setLaunchPath("/bin/tool");
    QVERIFY(task.run());
    QCOMPARE(task.terminationStatus(), 3);
    QCOMPARE(task.output(), "partial\n");

    task.setLaunchPath("/bin/missing");
    QVERIFY(!task.run());
}

QTEST_GUILESS_MAIN(TaskTest)
#include "TaskTest.moc"
