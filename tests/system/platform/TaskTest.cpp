#include "system/platform/Task.h"
#include "tests/support/TestVolume.h"

#include <QDir>
#include <QTest>

#include <fcntl.h>
#include <unistd.h>

using platform::linesOfText;
using platform::Task;

class TaskTest : public QObject
{
    Q_OBJECT

private slots:
    void lines();
    void output();
    void failures();
    void inheritance();

private:
    TestVolume m_volume;
};

void TaskTest::lines()
{
    QCOMPARE(linesOfText(""), QStringList({""}));
    QCOMPARE(linesOfText("a\r\nb\n\n"), QStringList({"a", "", "b", "", ""}));
    QCOMPARE(linesOfText("a\vb\fc\u0085d\u2028e\u2029f\tg"),
             QStringList({"a", "b", "c", "d", "e", "f\tg"}));
}

void TaskTest::output()
{
    m_volume.installTool("tool", "seq 1 300000"); // far more than a pipe holds
    const QStringList lines = Task::outputLines("/usr/bin/tool", {});
    QCOMPARE(lines.size(), 300001);
    QCOMPARE(lines[299999], "300000");

    m_volume.installTool("tool", "printf 'a\\0b\\nno line break'");
    QCOMPARE(Task::outputLines("/usr/bin/tool", {}),
             QStringList({QString::fromLatin1("a\0b", 3), "no line break"}));
}

void TaskTest::failures()
{
    for (const char *script : {"echo partial; exit 3", "echo partial; kill -9 $$",
                               "echo partial; exec >&-; sleep 0.3; exit 1", // closes it first
                               "exec yes", "yes | head -c 67200000"}) {     // too much
        m_volume.installTool("tool", script);
        QVERIFY2(Task::outputLines("/bin/tool", {}).isEmpty(), script);
    }
    QCOMPARE(Task::outputLines("/bin/missing", {}), QStringList());
}

// Environment, working folder, standard input and standard error are those of the program.
void TaskTest::inheritance()
{
    m_volume.installTool("tool",
                         "printf '%s|%s|%s|' \"$TARNWELL_USER\" \"$PWD\" \"$*\"; timeout 5 cat\n"
                         "echo remark >&2");
    m_volume.write("/0", "input");
    m_volume.write("/2", "");
    int originals[3] = {};
    for (const int stream : {0, 2}) {
        originals[stream] = ::dup(stream);
        const int file = ::open(qPrintable(m_volume.host('/' + QString::number(stream))), O_RDWR);
        ::dup2(file, stream);
        ::close(file);
    }
    const QStringList lines = Task::outputLines("/bin/tool", {"a b", "c"});
    for (const int stream : {0, 2}) {
        ::dup2(originals[stream], stream);
        ::close(originals[stream]);
    }
    QCOMPARE(lines, QStringList({"anna|" + QDir::currentPath() + "|a b c|input"}));
    QCOMPARE(m_volume.read("/2"), "remark\n");
}

QTEST_GUILESS_MAIN(TaskTest)
#include "TaskTest.moc"
