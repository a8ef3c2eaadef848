#include "system/platform/Bundle.h"
#include "tests/support/TestVolume.h"

#include <QTest>

#include <sys/stat.h>

using platform::Bundle;

namespace {

QByteArray xml(const QByteArray &value)
{
    return "<?xml version=\"1.0\"?><plist version=\"1.0\">" + value + "</plist>";
}

} // namespace

class BundleTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void placesOfTheDictionary();
    void wrappedBundles();
    void largeDictionaries();
    void namesThatLeadElsewhere();

private:
    TestVolume m_volume;
};

void BundleTest::placesOfTheDictionary()
{
    const QStringList places = {"/A.app", "/A.app/Resources", "/A.app/Contents"};
    for (const QString &place : places) {
        m_volume.write(place + "/Info.plist",
                       xml("<dict><key>CFBundleName</key><string>" + place.toUtf8() +
                           "</string><key>CFBundleIconFile</key><string>icon</string></dict>"));
        QCOMPARE(Bundle::bundleWithPath("/A.app")->infoDictionary().text("CFBundleName"), place);
    }
    QCOMPARE(Bundle::bundleWithPath("/A.app")->iconPaths().first(),
             "/A.app/Contents/Resources/icon.icns");
    QVERIFY(!Bundle::bundleWithPath(""));
    QVERIFY(Bundle::bundleWithPath("/missing")->bundleIdentifier().isNull());
}

void BundleTest::wrappedBundles()
{
    const QByteArray info = xml("<dict><key>CFBundleName</key><string>Inner</string>"
                                "<key>CFBundleExecutable</key><string>run</string>"
                                "<key>CFBundleIconFile</key><string>icon.png</string></dict>");
    m_volume.write("/Flat.app/Wrapper/Real.app/Info.plist", info);
    m_volume.write("/Deep.app/Wrapper/Real.app/Contents/Info.plist", info);
    for (const QString outer : {"/Flat.app", "/Deep.app"}) {
        QFile::link("Wrapper/Real.app", m_volume.host(outer + "/WrappedBundle"));
        QCOMPARE(Bundle::bundleWithPath(outer)->infoDictionary().text("CFBundleName"), "Inner");
    }
    const auto flat = Bundle::bundleWithPath("/Flat.app");
    QCOMPARE(flat->executablePath(), "/Flat.app/WrappedBundle/run");
    QCOMPARE(flat->iconPaths(), QStringList({"/Flat.app/WrappedBundle/icon.png"}));
    const auto deep = Bundle::bundleWithPath("/Deep.app");
    QCOMPARE(deep->executablePath(), "/Deep.app/WrappedBundle/Contents/MacOS/run");
    QCOMPARE(deep->iconPaths(),
             QStringList({"/Deep.app/WrappedBundle/Contents/Resources/icon.png"}));
}

void BundleTest::largeDictionaries()
{
    const auto identifier = [this](qsizetype size) {
        const QByteArray info = xml("<dict><key>CFBundleIdentifier</key><string>a</string></dict>");
        m_volume.write("/A.app/Contents/Info.plist", info.leftJustified(size));
        return Bundle::bundleWithPath("/A.app")->bundleIdentifier();
    };
    QCOMPARE(identifier(512 * 1024), "a");
    QVERIFY(identifier(512 * 1024 + 1).isNull());
}

void BundleTest::namesThatLeadElsewhere()
{
    for (const QString name : {"../../evil", "a/b", "..", "."}) {
        m_volume.writeBundle("/A.app", {{"CFBundleExecutable", name}, {"CFBundleIconFile", name}});
        const auto bundle = Bundle::bundleWithPath("/A.app");
        QVERIFY(bundle->executablePath().isNull() && bundle->iconPaths().isEmpty());
    }
    // A dictionary that is a FIFO, or a link out of the volume, is none, and nothing waits for it.
    QDir().mkpath(m_volume.host("/B.app/Contents"));
    QCOMPARE(::mkfifo(qPrintable(m_volume.host("/B.app/Contents/Info.plist")), 0600), 0);
    QVERIFY(Bundle::bundleWithPath("/B.app")->infoDictionary().text("CFBundleName").isNull());
    m_volume.writeBundle("/C.app", {{"CFBundleName", "C"}});
    QDir().mkpath(m_volume.host("/D.app"));
    QFile::link(m_volume.host("/C.app/Contents"), m_volume.host("/D.app/Contents"));
    QVERIFY(Bundle::bundleWithPath("/D.app")->infoDictionary().text("CFBundleName").isNull());
}

QTEST_GUILESS_MAIN(BundleTest)
#include "BundleTest.moc"
