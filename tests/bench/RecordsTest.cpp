#include "tests/support/TestVolume.h"

#include <QImage>
#include <QProcess>
#include <QTest>

namespace {

const QString home = QStringLiteral("/Users/anna/Library/");
const QString preferences = home + "Preferences/vnd.a.plist";
const QString data = home + "Application Support/vnd.a/file";

} // namespace

/// The program build/bench/records, run as a user of it would.
class RecordsTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_volume.clear(); }
    void list();
    void commands();

private:
    /// The exit status, and what was written to standard output.
    static std::pair<int, QByteArray> records(const QStringList &arguments)
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove("QT_QPA_PLATFORM");
        environment.remove("DISPLAY");
        environment.insert("TZ", "Asia/Kolkata");
        process.setProcessEnvironment(environment);
        process.start(QCoreApplication::applicationDirPath() + "/../bench/records", arguments);
        process.waitForFinished();
        return {process.exitCode(), process.readAllStandardOutput()};
    }

    TestVolume m_volume;
};

void RecordsTest::list()
{
    m_volume.writeBundle("/Applications/tab\t.app", {{"CFBundleName", "b\tb\nc\\"},
                                                     {"CFBundleIdentifier", "-"},
                                                     {"CFBundleShortVersionString", ""}});
    m_volume.writeBundle("/Applications/2.app", {{"CFBundleName", "Alpha"},
                                                 {"CFBundleIdentifier", "vnd.a"},
                                                 {"CFBundleShortVersionString", "2.1"},
                                                 {"CFBundleVersion", "340"},
                                                 {"CFBundleIconFile", "icon"}});
    m_volume.write("/Applications/2.app/Contents/large", QByteArray(12'340'000, 0));
    QImage picture(32, 32, QImage::Format_ARGB32);
    picture.fill(Qt::red);
    QDir().mkpath(m_volume.host("/Applications/2.app/Contents/Resources"));
    QVERIFY(picture.save(m_volume.host("/Applications/2.app/Contents/Resources/icon.icns")));
    m_volume.write(preferences, "x");
    m_volume.write(preferences + ".bak", "y");
    m_volume.setDate(preferences + ".bak", 1'700'000'000'500);
    m_volume.write(data, "z");

    const QByteArrayList lines = records({"list"}).second.split('\n');
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines[0], "Alpha\tvnd.a\t2.1 (340)\t12.3 MB\t/Applications/2.app"
                       "\t/users/anna/Library/Preferences/vnd.a.plist\t2023-11-14T22:13:20Z"
                       "\t/users/anna/Library/Application Support/vnd.a\t-\t32");
    const QByteArrayList fields = lines[1].split('\t');
    QCOMPARE(fields.mid(0, 3) + fields.mid(4, 5),
             QByteArrayList(
                 {"b\\tb\\nc\\\\", "\\-", "", "/Applications/tab\\t.app", "-", "-", "-", "-"}));
    QVERIFY(fields[9].toInt() > 0); // no icon is named: a stand-in
}

void RecordsTest::commands()
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
}

QTEST_GUILESS_MAIN(RecordsTest)
#include "RecordsTest.moc"
