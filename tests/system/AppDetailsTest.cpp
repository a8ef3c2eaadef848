#include "model/App.h"
#include "system/LocationCandidates.h"
#include "tests/support/NotificationLog.h"
#include "tests/support/TestVolume.h"

#include <QTest>

namespace {

const QString library = QStringLiteral("/users/anna/Library/");
const QString container = library + "Containers/vnd.sample.Note-Pad/Data/Library/";
const QString identifier = QStringLiteral("vnd.sample.Note-Pad");

} // namespace

class AppDetailsTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void candidates();
    void notificationOrder();
    void nothingFound();
    void versions();
    void sizeTexts();

private:
    std::unique_ptr<App> app(const QMap<QString, QString> &info)
    {
        m_volume.writeBundle("/Applications/N.app", info);
        return std::make_unique<App>("Note Pad", "/Applications/N.app",
                                     platform::Bundle::bundleWithPath("/Applications/N.app"));
    }
    /// Writes a file of the user's library, whose folder has another case on the disk.
    void writeHome(QString path) { m_volume.write(path.replace("/users/", "/Users/"), "x"); }

    TestVolume m_volume;
};

void AppDetailsTest::candidates()
{
    const LocationCandidates both("Note Pad", identifier);
    const QString support = "Application Support/";
    QCOMPARE(both.prefs(), QStringList({container + "Preferences/vnd.sample.Note-Pad.plist",
                                        library + "Preferences/vnd.sample.Note-Pad.plist"}));
    QCOMPARE(both.data(),
             QStringList({container + support + "Note Pad", container + support + identifier,
                          container + support + "vnd.sample.Note_Pad",
                          library + support + identifier, library + support + "Note Pad"}));

    const QMap<QString, QString> spellings = {
        {".vnd.tool", "vnd.tool"}, {"a-b.c-d.e-f", "a-b.c_d.e_f"}, {"a..b-c", "a..b_c"}};
    for (auto spelling = spellings.begin(); spelling != spellings.end(); ++spelling) {
        const QStringList data = LocationCandidates("N", spelling.key()).data();
        QVERIFY2(data.value(2).endsWith(support + spelling.value()), qPrintable(spelling.key()));
        QCOMPARE(data.size(), 5);
    }
    for (const QString onePiece : {"vnd.", "tool", "..tool"}) {
        QCOMPARE(LocationCandidates("N", onePiece).data().size(), 4);
    }
    // They stay in the library.
    for (const QString bad : {"", ".", "..", "../x", "a/../../x", "a/.", "/", "//", "a/"}) {
        QCOMPARE(LocationCandidates(bad, {}).data(), QStringList());
        QCOMPARE(LocationCandidates("N", bad).prefs(), QStringList());
        QCOMPARE(LocationCandidates("N", bad).data().size(), 1);
        QCOMPARE(LocationCandidates(bad, "a.b").data().size(), 3);
    }
    QCOMPARE(LocationCandidates("..N", {}).data().size(), 1);
}

void AppDetailsTest::notificationOrder()
{
    const QString file = library + "Preferences/vnd.sample.Note-Pad.plist";
    const QString folder = library + "Application Support/Note Pad";
    for (const QString &item : {file, file + ".bak", folder + "/x", folder + ".bak/x"}) {
        writeHome(item);
    }
    m_volume.setDate("/Users/anna/Library/Preferences/vnd.sample.Note-Pad.plist.bak", "0");
    m_volume.setDate("/Users/anna/Library/Application Support/Note Pad.bak", "1");
    const auto record =
        app({{"CFBundleIdentifier", identifier}, {"CFBundleShortVersionString", "1"}});
    m_volume.write("/Applications/N.app/Contents/Deep/large", QByteArray(1'500'000, 'x'));
    NotificationLog log;
    log.observe(*record, "app");
    log.observe(*record->prefs(), "prefs");
    log.observe(*record->data(), "data");
    const QStringList reset = {"prefs.path=",         "prefs.found=false", "prefs.backedUp=false",
                               "prefs.backupDate=",   "data.path=",        "data.found=false",
                               "data.backedUp=false", "data.backupDate="};
    const QStringList found = {"prefs.found=true",    "prefs.path=" + file,
                               "prefs.backedUp=true", "prefs.backupDate=1970-01-01T00:00:00.000",
                               "data.found=true",     "data.path=" + folder,
                               "data.backedUp=true",  "data.backupDate=1970-01-01T00:00:01.000"};
    record->loadDetails();
    const QStringList entries = log.take();
    QCOMPARE(entries.mid(0, 9), reset + QStringList{"app.appIcon="});
    QVERIFY(entries[9].startsWith("app.size=1.5")); // folders count with their own
    QCOMPARE(entries.mid(10), QStringList{"app.version=1"} + found);

    // The second time neither icon nor size nor version is looked at.
    record->loadDetails();
    QCOMPARE(log.take(), reset + found);
}

void AppDetailsTest::nothingFound()
{
    const auto record = app({{"CFBundleIdentifier", identifier}});
    writeHome(library + "Preferences/vnd.sample.Note-Pad.plist.bak");
    writeHome(library + "Application Support/Note Pad.bak/x");
    writeHome(container + "Application Support/Note Pad"); // a file is no data folder
    QDir().mkpath(m_volume.host("/Users/anna/Library/Application Support/Note Pad")); // empty
    record->loadDetails();
    for (const Path *location : {record->prefs(), record->data()}) {
        QVERIFY(location->path().isNull() && !location->found() && !location->backedUp());
    }

    // Of preferences anything counts, and what lies in the container before the rest.
    const QString file = "Preferences/vnd.sample.Note-Pad.plist";
    for (const QString &folder : {library, container}) {
        writeHome(folder + file + "/x");
        record->loadDetails();
        QCOMPARE(record->prefs()->path(), folder + file);
    }
    App missing("M", "/missing.app", record->bundle());
    missing.loadDetails();
    QCOMPARE(missing.size(), std::optional(0.0F));
}

void AppDetailsTest::versions()
{
    // The values of the short version and of the build, and what is shown.
    const std::tuple<QByteArray, QByteArray, QString> versions[] = {
        {"<string>2.1</string>", "<string>340</string>", "2.1 (340)"},
        {"<string>2.1</string>", "<string>2.1</string>", "2.1"},
        {"<string>2.1</string>", "<string> 2.1</string>", "2.1 ( 2.1)"},
        {"<string>2.1</string>", "<string> \n\t</string>", "2.1"},
        {"<string>2.1</string>", "<integer>7</integer>", "2.1"},
        {"<integer>2</integer>", "<string>7</string>", "kept"},
        {"<string></string>", "<string>7</string>", " (7)"}};
    for (const auto &[shortVersion, build, shown] : versions) {
        m_volume.write("/N.app/Info.plist", "<plist><dict><key>CFBundleShortVersionString</key>" +
                                                shortVersion + "<key>CFBundleVersion</key>" +
                                                build + "</dict></plist>");
        App record("N", "/N.app", platform::Bundle::bundleWithPath("/N.app"));
        record.setVersion("kept"); // without a short version
        record.loadDetails();
        QCOMPARE(record.version(), shown);
    }
}

void AppDetailsTest::sizeTexts()
{
    App app("A", "/A.app", platform::Bundle::bundleWithPath("/A.app"));
    const std::tuple<float, const char *, QString> sizes[] = {
        {12.0F, "en_US", "12 MB"},
        {0.04F, "en_US", "0 MB"},
        {0.25F, "en_US", "0.2 MB"}, // half to even
        {0.75F, "en_US", "0.8 MB"},
        {0.35F, "en_US", "0.3 MB"}, // no half in single precision
        {12.36F, "en_US", "12.4 MB"},
        {0.96F, "en_US", "1 MB"},
        {2000.5F, "en_US", "2,000.5 MB"},
        {2000.5F, "de_DE", "2.000,5 MB"},
        {1'234'567.5F, "en_IN", "12,34,567.5 MB"},
        {2000.5F, "es_ES", "2000,5 MB"}, // no separator before a single digit
        {20'000.5F, "es_ES", "20.000,5 MB"}};
    for (const auto &[size, locale, text] : sizes) {
        QLocale::setDefault(QLocale(locale));
        QVERIFY(app.setProperty("size", size));
        QCOMPARE(app.property("sizeMB").toString(), text);
    }
    QVERIFY(app.setProperty("size", QVariant()));
    QCOMPARE(app.property("size"), QVariant());
    QCOMPARE(app.sizeMB(), "");
}

QTEST_MAIN(AppDetailsTest)
#include "AppDetailsTest.moc"
