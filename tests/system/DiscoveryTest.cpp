#include "system/Discovery.h"
#include "model/App.h"
#include "system/platform/PathEncoding.h"
#include "system/platform/Task.h"
#include "tests/support/TestVolume.h"

#include <QDir>
#include <QProcess>
#include <QTest>

#include <cstdio>
#include <filesystem>
#include <unistd.h>

using platform::linesOfText;
using platform::Task;

/// The external tools, and what the list of applications and the running check make of them.
class DiscoveryTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void linesOfOutput();
    void outputOfTools();
    void failuresOfTools();
    void inheritanceOfTools();
    void pathsKept();
    void bundlesWithAName();
    void theQueryTool();
    void runningCheck();
    void runningProcess();

private:
    std::unique_ptr<App> app(const QString &path)
    {
        m_volume.writeBundle(path, {});
        return std::make_unique<App>("A", path, platform::Bundle::bundleWithPath(path));
    }

    TestVolume m_volume;
    const QString m_tools = QCoreApplication::applicationDirPath() + "/../libexec/tarnwell";
};

void DiscoveryTest::linesOfOutput()
{
    QCOMPARE(linesOfText(""), QStringList({""}));
    QCOMPARE(linesOfText("a\r\nb\n\n"), QStringList({"a", "", "b", "", ""}));
    QCOMPARE(linesOfText("a\vb\fc\u0085d\u2028e\u2029f\tg"),
             QStringList({"a", "b", "c", "d", "e", "f\tg"}));
}

void DiscoveryTest::outputOfTools()
{
    m_volume.installTool("tool", "seq 1 300000"); // far more than a pipe holds
    const QStringList lines = Task::outputLines("/usr/bin/tool", {});
    QCOMPARE(lines.size(), 300001);
    QCOMPARE(lines[299999], "300000");

    m_volume.installTool("tool", "printf 'a\\0b\\nno line break'");
    QCOMPARE(Task::outputLines("/usr/bin/tool", {}),
             QStringList({QString::fromLatin1("a\0b", 3), "no line break"}));
}

void DiscoveryTest::failuresOfTools()
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
void DiscoveryTest::inheritanceOfTools()
{
    m_volume.installTool("tool",
                         "printf '%s|%s|%s|' \"$TARNWELL_USER\" \"$PWD\" \"$*\"; timeout 5 cat\n"
                         "echo remark >&2");
    m_volume.write("/0", "input");
    m_volume.write("/2", "");
    QVERIFY(std::freopen(qPrintable(m_volume.host("/0")), "r", stdin) != nullptr);
    const int original = ::dup(STDERR_FILENO);
    QVERIFY(std::freopen(qPrintable(m_volume.host("/2")), "w", stderr) != nullptr);
    const QStringList lines = Task::outputLines("/bin/tool", {"a b", "c"});
    ::dup2(original, STDERR_FILENO);
    ::close(original);
    QCOMPARE(lines, QStringList({"anna|" + QDir::currentPath() + "|a b c|input"}));
    QCOMPARE(m_volume.read("/2"), "remark\n");
}

void DiscoveryTest::pathsKept()
{
    m_volume.installTool("mdfind", R"(
        [ $# = 1 ] && [ "$1" = kMDItemKind=Application ] || exit 1
        printf '/Applications/B.app\n/System/Library/CoreServices/C.app\n/Applications/A.app\r\n'
        printf '/Applications/Library Tools.app\n/Applications/library tools.app\n'
        printf '/Volumes/X/.Trashes/501/D.app\n/users/anna/.Trash/E.app\n/Caf\303\251\377.app\n')");
    QCOMPARE(applicationPaths(),
             QStringList({"/Applications/B.app", "/Applications/A.app", "",
                          "/Applications/library tools.app",
                          QString::fromUtf8("/Café") + QChar(0xDCFF) + ".app", ""}));
}

void DiscoveryTest::bundlesWithAName()
{
    m_volume.writeBundle("/A.app", {{"CFBundleName", "Ä & Co"}, {"CFBundleIdentifier", "vnd.a"}});
    const auto record = appAtPath("/A.app");
    QVERIFY(record);
    QCOMPARE(record->name(), "Ä & Co");
    QCOMPARE(record->path(), "/A.app");
    QCOMPARE(record->identifier(), "vnd.a");

    m_volume.writeBundle("/Empty.app", {{"CFBundleName", ""}});
    QVERIFY(appAtPath("/Empty.app"));
    m_volume.writeBundle("/NoName.app", {{"CFBundleIdentifier", "vnd.b"}});
    m_volume.write("/Number.app/Contents/Info.plist",
                   "<plist><dict><key>CFBundleName</key><integer>7</integer></dict></plist>");
    m_volume.write("/Plain.app", "not a folder");
    for (const QString path : {"", "/missing", "/NoName.app", "/Number.app", "/Plain.app"}) {
        QVERIFY2(!appAtPath(path), qPrintable(path));
    }
}

void DiscoveryTest::theQueryTool()
{
    // A Mac's disk in two volumes: the second one holds what is seen at the root, once.
    for (const QString path :
         {"/Applications/B.app", "/Applications/Folder/A.APP", "/Users/anna/Desktop/C.app",
          "/Applications (Old)/D.app", "/opt/E.app", "/System/Applications/F.app",
          "/Volumes/Stick/G.app", "/System/Volumes/Data/Applications/B.app",
          "/System/Volumes/Data/Applications/H.app", "/System/Volumes/Data/Users/anna/I.app"}) {
        m_volume.writeBundle(path, {{"CFBundleName", "H"}});
    }
    // What an index does not know, or discovery never asks for.
    for (const QString folder :
         {"/Applications/B.app/Contents", "/Applications/.hidden", "/Applications/Old.noindex",
          "/Users/anna/Pictures.photoslibrary", "/Applications/X.framework",
          "/Applications/Y.PLUGIN", "/Library/Z", "/Users/anna/Library",
          "/Applications/Library Tools", "/Users/anna/.Trash", "/private/var",
          "/System/Volumes/Update", "/usr/local"}) {
        m_volume.writeBundle(folder + "/None.app", {});
    }
    for (const QChar newline : QStringView(u"\n\v\f\r\u0085\u2028\u2029")) {
        m_volume.writeBundle(QString("/Applications/Line%1break.app").arg(newline), {});
    }
    const std::string noUtf8 = "/opt/E\xf6.app";
    std::filesystem::rename(m_volume.host("/opt/E.app").toStdString(),
                            m_volume.host({}).toStdString() + noUtf8);
    QFile::link(m_volume.host("/opt"), m_volume.host("/Applications/link"));
    QFile::link("/", m_volume.host("/Applications/host.app"));

    Task::setToolFolder(m_tools);
    QCOMPARE(Task::outputLines("/usr/bin/mdfind", {"kMDItemKind=Application"}),
             QStringList({"/Applications/B.app", "/Applications/Folder/A.APP",
                          "/Applications (Old)/D.app", "/System/Applications/F.app",
                          "/Users/anna/Desktop/C.app", "/Volumes/Stick/G.app",
                          platform::pathFromBytes(noUtf8), "/Applications/H.app",
                          "/Users/anna/I.app", ""}));
    QVERIFY(appAtPath("/Applications/H.app"));
}

void DiscoveryTest::runningCheck()
{
    const QByteArray foo =
        "[ \"$*\" = -A ] || exit 1; echo '  1 /Applications/Foo.app/Contents/MacOS/Foo -x'";
    const std::tuple<QString, QByteArray, bool> listings[] = {
        {"/Applications/Foo.app", foo, true},
        {"/Applications/Fo.app", foo, false},
        {"/Applications/foo.app", foo, false},
        {"/Applications/Foo.app", foo + "; exit 1", false},
        {"/Applications/Foo.app", "echo /Applications/Foo.apple.app/Bar", true},
        {"/Applications/Foo.app", "printf '/Applications/F\\noo.app'", false},
        {QString("/A") + QChar(0xDCFF) + ".app", "printf '\\376 /A\\377.app/x\\n'", true}};
    for (const auto &[path, tool, isRunning] : listings) {
        m_volume.installTool("ps", tool);
        QVERIFY2(app(path)->isAppRunning() == isRunning, tool);
    }
}

void DiscoveryTest::runningProcess()
{
    Task::setToolFolder(m_tools);
    const auto record = app("/Applications/Sleeper.app");
    QVERIFY(!record->isAppRunning());
    QProcess process;
    // Longer than any screen is wide, and with what would end a line.
    process.start("/bin/sh", {"-c", "sleep 60; :", QString(5000, 'x'), "a\nb\x1b\x7f",
                              m_volume.host("/Applications/Sleeper.app/Contents/MacOS/Sleeper")});
    QVERIFY(process.waitForStarted());
    QTRY_VERIFY(record->isAppRunning());
    QCOMPARE(Task::outputLines("/bin/ps", {"-A"}).filter(" a?b?? /").size(), 1);
    process.kill();
    process.waitForFinished();
    QVERIFY(!record->isAppRunning());
}

QTEST_GUILESS_MAIN(DiscoveryTest)
#include "DiscoveryTest.moc"
