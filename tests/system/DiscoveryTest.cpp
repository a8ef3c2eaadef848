#include "system/Discovery.h"
#include "model/App.h"
#include "system/platform/PathEncoding.h"
#include "system/platform/Task.h"
#include "tests/support/TestVolume.h"

#include <QProcess>
#include <QTest>

#include <filesystem>

class DiscoveryTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void pathsKept();
    void bundlesWithAName();
    void theQueryTool();
    void runningCheck();
    void runningProcess();

private:
    static QString tools()
    {
        return QCoreApplication::applicationDirPath() + "/../libexec/tarnwell";
    }
    std::unique_ptr<App> app(const QString &path)
    {
        m_volume.writeBundle(path, {});
        return std::make_unique<App>("A", path, platform::Bundle::bundleWithPath(path));
    }

    TestVolume m_volume;
};

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
    m_volume.writeBundle("/Applications/B.app", {});
    m_volume.writeBundle("/Applications/B.app/Contents/Inner.app", {});
    m_volume.writeBundle("/Applications/Folder/A.APP", {});
    m_volume.writeBundle("/Users/anna/Desktop/C.app", {});
    m_volume.writeBundle("/Applications (Old)/D.app", {});
    m_volume.writeBundle("/opt/E.app", {});
    m_volume.writeBundle("/System/Applications/F.app", {});
    m_volume.writeBundle("/Volumes/Stick/G.app", {});
    // A Mac's disk in two volumes: this one holds what is seen at the root, once.
    const QString data = "/System/Volumes/Data";
    m_volume.writeBundle(data + "/Applications/B.app", {});
    m_volume.writeBundle(data + "/Applications/H.app", {{"CFBundleName", "H"}});
    m_volume.writeBundle(data + "/Users/anna/I.app", {});
    // What an index does not know, or discovery never asks for.
    for (const QString folder : {"/Applications/.hidden", "/Applications/Old.noindex",
                                 "/Users/anna/Pictures.photoslibrary", "/Applications/X.framework",
                                 "/Applications/Y.PLUGIN", "/Library/Z", "/Users/anna/Library",
                                 "/Applications/Library Tools", "/Users/anna/.Trash",
                                 "/private/var", "/System/Volumes/Update", "/usr/local"}) {
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

    platform::Task::setToolFolder(tools());
    QCOMPARE(platform::Task::outputLines("/usr/bin/mdfind", {"kMDItemKind=Application"}),
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
    platform::Task::setToolFolder(tools());
    const auto record = app("/Applications/Sleeper.app");
    QVERIFY(!record->isAppRunning());
    QProcess process;
    // Longer than any screen is wide, and with what would end a line.
    process.start("/bin/sh", {"-c", "sleep 60; :", QString(5000, 'x'), "a\nb\x1b\x7f",
                              m_volume.host("/Applications/Sleeper.app/Contents/MacOS/Sleeper")});
    QVERIFY(process.waitForStarted());
    QTRY_VERIFY(record->isAppRunning());
    QCOMPARE(platform::Task::outputLines("/bin/ps", {"-A"}).filter(" a?b?? /").size(), 1);
    process.kill();
    process.waitForFinished();
    QVERIFY(!record->isAppRunning());
}

QTEST_GUILESS_MAIN(DiscoveryTest)
#include "DiscoveryTest.moc"
