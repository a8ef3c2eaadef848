#include "system/platform/Bundle.h"
#include "tests/support/TestVolume.h"

#include <QRegularExpression>
#include <QTest>

#include <sys/stat.h>

using platform::Bundle;

namespace {

QString nameIn(const QByteArray &bytes)
{
    static constexpr std::array<std::string_view, 2> keys = {"name", "other"};
    return platform::PropertyList(bytes, keys).text("name");
}

QByteArray xml(const QByteArray &value)
{
    return "<plist><dict><key>name</key>" + value + "</dict></plist>";
}

/// A binary dictionary with the one key "name".
QByteArray binary(const QByteArray &value)
{
    const QByteArray start = "bplist00\xD1\x01\x02\x54name" + value;
    const QByteArray offsets = QByteArray("\x08\x0B\x10", 3);
    const QByteArray sizes = QByteArray(6, 0) + "\x01\x01"; // of an offset and of a reference
    return start + offsets + sizes + QByteArray(7, 0) + '\3' + QByteArray(14, 0) +
           char(start.size() >> 8) + char(start.size());
}

} // namespace

/// Bundles, and the property lists in them: those in the folders of CORPUS and a few more, as
/// bytes.
class BundleTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void placesOfTheDictionary();
    void brokenDictionaries();
    void namesOfFiles();
    void textsOfLists();
    void corpusOfLists();
    void cutLists();

private:
    TestVolume m_volume;
};

void BundleTest::placesOfTheDictionary()
{
    // From the last that is looked at to the first, with those of executables and of icons.
    const std::tuple<QString, QString, QString> places[] = {
        {"/WrappedBundle", "/", "/"},
        {"/WrappedBundle/Contents", "/MacOS/", "/Resources/"},
        {"", "/MacOS/", "/Resources/"},
        {"/Resources", "/MacOS/", "/"},
        {"/Contents", "/MacOS/", "/Resources/"}};
    QDir().mkpath(m_volume.host("/A.app/Wrapper/Real.app"));
    QFile::link("Wrapper/Real.app", m_volume.host("/A.app/WrappedBundle"));
    for (const auto &[place, executables, icons] : places) {
        const QString folder = "/A.app" + place;
        m_volume.writeInfo(folder, {{"CFBundleExecutable", "a"}, {"CFBundleIconFile", "a.png"}});
        const auto bundle = Bundle::bundleWithPath("/A.app");
        QCOMPARE(bundle->executablePath(), folder + executables + "a");
        QCOMPARE(bundle->iconPaths(), QStringList({folder + icons + "a.png"}));
    }
}

// What stands in the first place counts, whatever it is, and nothing waits for it.
void BundleTest::brokenDictionaries()
{
    const QString first = "/A.app/Contents/Info.plist";
    const auto identifier = [] { return Bundle::bundleWithPath("/A.app")->bundleIdentifier(); };
    m_volume.writeInfo("/A.app", {{"CFBundleIdentifier", "second"}});
    QCOMPARE(identifier(), "second");
    m_volume.writeInfo("/A.app/Contents", {{"CFBundleIdentifier", "first"}});
    const QByteArray whole = m_volume.read(first);
    constexpr qsizetype largest = 512 * 1024;
    m_volume.write(first, whole.leftJustified(largest));
    QCOMPARE(identifier(), "first");
    for (const QByteArray &bytes :
         {whole.leftJustified(largest + 1), whole.chopped(20), QByteArray()}) {
        m_volume.write(first, bytes);
        QVERIFY(identifier().isNull());
    }
    QFile::remove(m_volume.host(first));
    QDir().mkpath(m_volume.host(first));
    QVERIFY(identifier().isNull());
    QDir().rmdir(m_volume.host(first));
    QCOMPARE(::mkfifo(qPrintable(m_volume.host(first)), 0600), 0);
    QVERIFY(identifier().isNull());

    // A link out of the volume leads to nothing.
    m_volume.writeInfo("/B.app/Contents", {{"CFBundleIdentifier", "other"}});
    QDir().mkpath(m_volume.host("/C.app"));
    QFile::link(m_volume.host("/B.app/Contents"), m_volume.host("/C.app/Contents"));
    QVERIFY(Bundle::bundleWithPath("/C.app")->bundleIdentifier().isNull());
    QVERIFY(!Bundle::bundleWithPath(""));
    QVERIFY(Bundle::bundleWithPath("/missing")->bundleIdentifier().isNull());
}

void BundleTest::namesOfFiles()
{
    const std::pair<QString, QStringList> names[] = {
        {"icon", {"icon.icns", "icon.png", "icon"}},
        {"icon.v2", {"icon.v2.icns", "icon.v2.png", "icon.v2"}},
        {"icon.icns", {"icon.icns"}},
        {"ICON.ICNS", {"ICON.ICNS"}},
        {"icon.Png", {"icon.Png"}},
        {"../../evil", {}}, // they may not lead elsewhere
        {"a/b", {}},
        {"..", {}},
        {".", {}},
        {"", {}}};
    for (auto [name, files] : names) {
        m_volume.writeInfo("/A.app", {{"CFBundleExecutable", name}, {"CFBundleIconFile", name}});
        const auto bundle = Bundle::bundleWithPath("/A.app");
        QCOMPARE(bundle->executablePath().isNull(), files.isEmpty());
        files.replaceInStrings(QRegularExpression("^"), "/A.app/Resources/");
        QCOMPARE(bundle->iconPaths(), files);
    }
}

void BundleTest::textsOfLists()
{
    const std::pair<QByteArray, QString> lists[] = {
        {xml("<string/>"), ""},
        {xml("<string> a\n </string>"), " a\n "},
        {xml("<string>a<!-- -->b<![CDATA[<c>]]>&amp;&#x64;</string>"), "ab<c>&d"},
        {xml("<string>" + QByteArray(16'384, 'a') + "</string>"), QString(16'384, 'a')},
        {binary("\x50"), ""},
        {binary(QByteArray("\x63\0G\0r\0\xF6", 7)), "Grö"},
        {binary("\x5F\x10\x12" + QByteArray(18, 'a')), QString(18, 'a')},
        {binary("\x5F\x11\x40" + QByteArray(1, 0) + QByteArray(16'384, 'a')),
         QString(16'384, 'a')}};
    for (const auto &[bytes, text] : lists) {
        QCOMPARE(nameIn(bytes), text);
        QVERIFY(!nameIn(bytes).isNull());
    }
}

void BundleTest::corpusOfLists()
{
    for (const auto &[folder, text] :
         {std::pair("a", QString("a")), std::pair("encodings", QString("Größe")),
          std::pair("none", QString())}) {
        const QFileInfoList lists = QDir(QString(CORPUS) + folder).entryInfoList(QDir::Files);
        QVERIFY(!lists.isEmpty());
        for (const QFileInfo &list : lists) {
            QFile file(list.filePath());
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QString name = nameIn(file.readAll());
            QVERIFY2(name == text && name.isNull() == text.isNull(), qPrintable(list.filePath()));
        }
    }
}

/// What is cut off anywhere gives nothing, and no byte beyond the end is read.
void BundleTest::cutLists()
{
    for (const QByteArray &list : {xml("<string>a</string>"), binary("\x51\x61")}) {
        const qsizetype end = list.startsWith('<') ? list.indexOf("</dict>") + 7 : list.size();
        QVERIFY(!nameIn(list.first(end)).isNull());
        for (qsizetype size = 0; size < end; ++size) {
            // A copy of its own, so that a sanitizer sees its end.
            QVERIFY(nameIn(QByteArray(list.constData(), size)).isNull());
        }
    }
}

QTEST_GUILESS_MAIN(BundleTest)
#include "BundleTest.moc"
