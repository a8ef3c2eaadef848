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
    void placesOfTheDictionary_data();
    void placesOfTheDictionary();
    void brokenDictionaries();
    void iconNames_data();
    void iconNames();
    void namesThatLeadElsewhere();

private:
    TestVolume m_volume;
};

void BundleTest::placesOfTheDictionary_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("executable");
    QTest::addColumn<QString>("icon");
    const auto row = [](const QString &folder, const QString &executables, const QString &icons) {
        QTest::newRow(qPrintable(folder)) << folder << executables + "run" << icons + "icon.png";
    };
    // In the order in which they are looked at.
    row("/Contents", "/Contents/MacOS/", "/Contents/Resources/");
    row("/Resources", "/Resources/MacOS/", "/Resources/");
    row("", "/MacOS/", "/Resources/");
    row("/WrappedBundle/Contents", "/WrappedBundle/Contents/MacOS/",
        "/WrappedBundle/Contents/Resources/");
    row("/WrappedBundle", "/WrappedBundle/", "/WrappedBundle/");
}

void BundleTest::placesOfTheDictionary()
{
    QFETCH(QString, folder);
    QFETCH(QString, executable);
    QFETCH(QString, icon);
    QDir().mkpath(m_volume.host("/A.app/Wrapper/Real.app"));
    QFile::link("Wrapper/Real.app", m_volume.host("/A.app/WrappedBundle"));
    m_volume.writeInfo("/A.app" + folder, info);
    const QStringList folders = {"/Contents", "/Resources", "", "/WrappedBundle/Contents",
                                 "/WrappedBundle"};
    for (const QString &later : folders.mid(folders.indexOf(folder) + 1)) {
        m_volume.writeInfo("/A.app" + later, {});
    }
    const auto bundle = Bundle::bundleWithPath("/A.app");
    QCOMPARE(bundle->executablePath(), "/A.app" + executable);
    QCOMPARE(bundle->iconPaths(), QStringList({"/A.app" + icon}));
}

// What stands in the first place counts, whatever it is, and nothing waits for it.
void BundleTest::brokenDictionaries()
{
    const QString first = "/A.app/Contents/Info.plist";
    const auto identifier = [this] { return Bundle::bundleWithPath("/A.app")->bundleIdentifier(); };
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

void BundleTest::iconNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("files");
    QTest::newRow("bare") << "icon" << QStringList{"icon.icns", "icon.png", "icon"};
    QTest::newRow("with a dot") << "icon.v2"
                                << QStringList{"icon.v2.icns", "icon.v2.png", "icon.v2"};
    for (const char *name : {"icon.icns", "ICON.ICNS", "icon.Png"}) {
        QTest::newRow(name) << name << QStringList{name};
    }
}

void BundleTest::iconNames()
{
    QFETCH(QString, name);
    QFETCH(QStringList, files);
    m_volume.writeInfo("/A.app/Contents", {{"CFBundleIconFile", name}});
    const QString folder = "/A.app/Contents/Resources/";
    QCOMPARE(Bundle::bundleWithPath("/A.app")->iconPaths(),
             files.replaceInStrings(QRegularExpression("^"), folder));
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
