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
    void cleanup() { m_volume.clear(); }
    void list();
    void oddTexts();
    void backUpAndRestore();
    void nothingToDo();
    void usage();

private:
    struct Result
    {
        int status;
        QByteArray output;
    };

    static Result records(const QStringList &arguments)
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove("QT_QPA_PLATFORM");
        environment.remove("DISPLAY");
        process.setProcessEnvironment(environment);
        process.start(QCoreApplication::applicationDirPath() + "/../bench/records", arguments);
        process.waitForFinished();
        return {process.exitCode(), process.readAllStandardOutput()};
    }

    TestVolume m_volume;
};

void RecordsTest::list()
{
    m_volume.writeBundle("/Applications/1.app", {{"CFBundleName", "beta"}});
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

    const QByteArrayList lines = records({"list"}).output.split('\n');
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines[0], "Alpha\tvnd.a\t2.1 (340)\t12.3 MB\t/Applications/2.app"
                       "\t/users/anna/Library/Preferences/vnd.a.plist\t2023-11-14T22:13:20Z"
                       "\t/users/anna/Library/Application Support/vnd.a\t-\t32");
    const QByteArrayList fields = lines[1].split('\t');
    QCOMPARE(fields.mid(0, 3) + fields.mid(4, 5),
             QByteArrayList({"beta", "-", "-", "/Applications/1.app", "-", "-", "-", "-"}));
    QVERIFY(fields[9].toInt() > 0); // no icon is named: a stand-in
}

void RecordsTest::oddTexts()
{
    m_volume.writeBundle("/Applications/tab\t.app", {{"CFBundleName", "a\tb\nc\\"},
                                                     {"CFBundleIdentifier", "-"},
                                                     {"CFBundleShortVersionString", ""}});
    const QByteArray line = records({"list"}).output;
    QVERIFY2(line.startsWith("a\\tb\\nc\\\\\t\\-\t\t"), line);
    QVERIFY2(line.contains("\t/Applications/tab\\t.app\t"), line);
    QCOMPARE(line.count('\t'), 9);
}

void RecordsTest::backUpAndRestore()
{
    m_volume.writeBundle("/A.app", {{"CFBundleName", "A"}, {"CFBundleIdentifier", "vnd.a"}});
    m_volume.write(preferences, "first");
    m_volume.write(data, "first");
    for (const QString kind : {"prefs", "data"}) {
        QCOMPARE(records({"backup", kind, "/A.app"}).status, 0);
    }
    m_volume.write(preferences, "second");
    m_volume.write(data, "second");
    QCOMPARE(records({"restore", "data", "/A.app"}).status, 0);
    QCOMPARE(records({"backup", "prefs", "/A.app"}).status, 0); // replaces the older one
    QCOMPARE(m_volume.read(data), "first");
    QCOMPARE(m_volume.read(preferences + ".bak"), "second");
}

void RecordsTest::nothingToDo()
{
    m_volume.writeBundle("/A.app", {{"CFBundleName", "A"}, {"CFBundleIdentifier", "vnd.a"}});
    m_volume.write(preferences, "only");
    const QList<QStringList> commands = {{"restore", "prefs", "/A.app"},
                                         {"backup", "data", "/A.app"},
                                         {"backup", "prefs", "/missing.app"}};
    for (const QStringList &command : commands) {
        const Result result = records(command);
        QCOMPARE(result.status, 1);
        QCOMPARE(result.output, "");
    }
    QCOMPARE(m_volume.read(preferences), "only");
}

void RecordsTest::usage()
{
    const QList<QStringList> wrong = {
        {}, {"lists"}, {"backup", "prefs"}, {"backup", "icon", "/A.app"}, {"list", "prefs", "/A"}};
    for (const QStringList &arguments : wrong) {
        const Result result = records(arguments);
        QCOMPARE(result.status, 2);
        QCOMPARE(result.output, "");
    }
}

QTEST_GUILESS_MAIN(RecordsTest)
#include "RecordsTest.moc"
