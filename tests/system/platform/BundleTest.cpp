#include "system/platform/Bundle.h"
#include "tests/support/TestVolume.h"

#include <QRegularExpression>
#include <QTest>

#include <sys/stat.h>

using platform::Bundle;

namespace {

const QMap<QString, QString> info = {{"CFBundleExecutable", "run"},
                                     {"CFBundleIconFile", "icon.png"}};

} // namespace

class BundleTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void placesOfTheDictionary();
    void brokenDictionaries();
    void iconNames();
    void namesThatLeadElsewhere();

private:
    TestVolume m_volume;
};

void BundleTest::placesOfTheDictionary()
{
    // In the order in which they are looked at, with those of the executable and of the icon.
    const std::tuple<QString, QString, QString> places[] = {
        {"/Contents", "/Contents/MacOS/", "/Contents/Resources/"},
        {"/Resources", "/Resources/MacOS/", "/Resources/"},
        {"", "/MacOS/", "/Resources/"},
        {"/WrappedBundle/Contents", "/WrappedBundle/Contents/MacOS/",
         "/WrappedBundle/Contents/Resources/"},
        {"/WrappedBundle", "/WrappedBundle/", "/WrappedBundle/"}};
    QDir().mkpath(m_volume.host("/A.app/Wrapper/Real.app"));
    QFile::link("Wrapper/Real.app", m_volume.host("/A.app/WrappedBundle"));
    for (const auto &[folder, executables, icons] : places) {
        m_volume.writeInfo("/A.app" + folder, info);
    }
    for (const auto &[folder, executables, icons] : places) {
        const auto bundle = Bundle::bundleWithPath("/A.app");
        QCOMPARE(bundle->executablePath(), "/A.app" + executables + "run");
        QCOMPARE(bundle->iconPaths(), QStringList({"/A.app" + icons + "icon.png"}));
        QFile::remove(m_volume.host("/A.app" + folder + "/Info.plist"));
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

void BundleTest::iconNames()
{
    const std::pair<QString, QStringList> names[] = {
        {"icon", {"icon.icns", "icon.png", "icon"}},
        {"icon.v2", {"icon.v2.icns", "icon.v2.png", "icon.v2"}},
        {"icon.icns", {"icon.icns"}},
        {"ICON.ICNS", {"ICON.ICNS"}},
        {"icon.Png", {"icon.Png"}}};
    for (auto [name, files] : names) {
        m_volume.writeInfo("/A.app", {{"CFBundleIconFile", name}});
        files.replaceInStrings(QRegularExpression("^"), "/A.app/Resources/");
        QCOMPARE(Bundle::bundleWithPath("/A.app")->iconPaths(), files);
    }
}

void BundleTest::namesThatLeadElsewhere()
{
    for (const QString name : {"../../evil", "a/b", "..", ".", ""}) {
        m_volume.writeInfo("/A.app/Contents",
                           {{"CFBundleExecutable", name}, {"CFBundleIconFile", name}});
        const auto bundle = Bundle::bundleWithPath("/A.app");
        QVERIFY(bundle->executablePath().isNull() && bundle->iconPaths().isEmpty());
    }
}

QTEST_GUILESS_MAIN(BundleTest)
#include "BundleTest.moc"
