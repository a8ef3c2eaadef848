#include "system/platform/Bundle.h"
#include "tests/support/TestVolume.h"

#include <QTest>
#include <QtEndian>

#include <plist/plist.h>

#include <sys/stat.h>

using platform::Bundle;
using platform::PropertyList;

namespace {

QByteArray xml(const QByteArray &value)
{
    return "<?xml version=\"1.0\"?><plist version=\"1.0\">" + value + "</plist>";
}

QByteArray binary(const QByteArray &xmlText)
{
    plist_t node = nullptr;
    plist_from_memory(xmlText.constData(), uint32_t(xmlText.size()), &node);
    char *bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(node, &bytes, &length);
    const QByteArray result(bytes, length);
    std::free(bytes);
    plist_free(node);
    return result;
}

QByteArray bigEndian(qsizetype value)
{
    QByteArray bytes(8, 0);
    qToBigEndian(quint64(value), bytes.data());
    return bytes;
}

/// A binary property list of the objects, the first being the root. Numbers of objects have one
/// byte.
QByteArray binaryOf(const QByteArrayList &objects)
{
    QByteArray bytes = "bplist00";
    QByteArray offsets;
    for (const QByteArray &object : objects) {
        offsets += bigEndian(bytes.size());
        bytes += object;
    }
    return bytes + offsets + QByteArray(6, 0) + "\x08\x01" + bigEndian(objects.size()) +
           bigEndian(0) + bigEndian(bytes.size());
}

} // namespace

class BundleTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void texts();
    void placesOfTheDictionary();
    void brokenDictionaries();
    void namesThatLeadElsewhere();

private:
    TestVolume m_volume;
};

void BundleTest::texts()
{
    const QByteArray info =
        xml("<dict><key>Text</key><string>Gr\xc3\xb6\xc3\x9f</string><key>Empty</key><string/>"
            "<key>Yes</key><true/><key>Number</key><integer>42</integer>"
            "<key>Data</key><data>AAEC</data><key>List</key><array><string>a</string></array>"
            "<key>Real</key><real>1.5</real><key>Date</key><date>2026-03-02T09:30:00Z</date>"
            "<key>Dictionary</key><dict><key>Dictionary</key><string>a</string></dict></dict>");
    for (const QByteArray &bytes : {info, binary(info)}) {
        m_volume.write("/A.app/Contents/Info.plist", bytes);
        const auto bundle = Bundle::bundleWithPath("/A.app");
        const PropertyList &values = bundle->infoDictionary();
        QCOMPARE(values.text("Text"), QString::fromUtf8("Größ"));
        QVERIFY(!values.text("Empty").isNull() && values.text("Empty").isEmpty());
        for (const char *key :
             {"Yes", "Number", "Data", "List", "Real", "Date", "Dictionary", "missing"}) {
            QVERIFY(values.text(key).isNull());
        }
        bundle->discardInfoDictionary();
        QCOMPARE(bundle->infoDictionary().text("Text"), QString::fromUtf8("Größ"));
    }
}

void BundleTest::placesOfTheDictionary()
{
    const QStringList places = {"/A.app", "/A.app/Resources", "/A.app/Contents"};
    for (const QString &place : places) {
        m_volume.write(place + "/Info.plist",
                       xml("<dict><key>Place</key><string>" + place.toUtf8() +
                           "</string><key>CFBundleIconFile</key><string>icon</string></dict>"));
        QCOMPARE(Bundle::bundleWithPath("/A.app")->infoDictionary().text("Place"), place);
    }
    QCOMPARE(Bundle::bundleWithPath("/A.app")->iconPath(), "/A.app/Contents/Resources/icon.icns");
    QVERIFY(!Bundle::bundleWithPath(""));
    QVERIFY(Bundle::bundleWithPath("/missing")->bundleIdentifier().isNull());
}

void BundleTest::brokenDictionaries()
{
    const auto expectNothing = [this](const char *name, const QByteArray &bytes) {
        m_volume.write("/A.app/Contents/Info.plist", bytes);
        const auto bundle = Bundle::bundleWithPath("/A.app");
        QVERIFY2(bundle && bundle->bundleIdentifier().isNull(), name);
    };
    const QByteArray whole = binary(xml("<dict><key>a</key><string>b</string></dict>"));
    expectNothing("empty file", QByteArray());
    expectNothing("no dictionary", xml("<array/>"));
    expectNothing("cut off", QByteArray("<plist><dict><key>CFBundleName</key><str"));
    expectNothing("no property list", QByteArray("\x7f"
                                                 "ELF\0\0",
                                                 6));
    expectNothing("cut off binary", whole.left(whole.size() - 9));
    expectNothing("nested beyond measure", xml(QByteArray("<array>").repeated(1'000'000)));
    // Twelve arrays of ten references to the next: a million million values.
    QByteArrayList unfolding;
    for (char level = 1; level <= 12; ++level) {
        unfolding += '\xAA' + QByteArray(10, level);
    }
    expectNothing("unfolding without end", binaryOf(unfolding + QByteArrayList{"\x08"}));
    expectNothing("containing itself", binaryOf({QByteArray("\xA1\x00", 2)}));
    // One value each, but all the same one.
    const QByteArray manifold = "\xAF\x11\xFF\xFF" + QByteArray(0xFFFF, 1);
    expectNothing("many references to a list", binaryOf({manifold, manifold, "\x08"}));
    expectNothing("many references to a text",
                  binaryOf({manifold, "\x5F\x11\xFF\xFF" + QByteArray(0xFFFF, 'a')}));
    // The library would go through the rest of the text for each reference, through all keys for
    // each key, and end the program at a NUL.
    const QByteArray identifier = "<key>CFBundleIdentifier</key><string>";
    expectNothing(
        "many references to a character",
        xml("<dict>" + identifier + QByteArray("&lt;").repeated(1'000'000) + "</string></dict>"));
    expectNothing("many keys",
                  xml("<dict>" + identifier + "a</string>" +
                      QByteArray("<key>k</key><true/>").repeated(100'000) + "</dict>"));
    expectNothing("a NUL in a text",
                  xml("<dict>" + identifier + QByteArray("a\0b</string></dict>", 19)));
    expectNothing("a text beyond measure",
                  xml("<dict>" + identifier + QByteArray(65'537, 'a') + "</string></dict>"));
    expectNothing("a NUL in a binary text",
                  binaryOf({"\xD1\x01\x02", QByteArray("\x5F\x10\x12") + "CFBundleIdentifier",
                            QByteArray("\x63\0a\0\0\0b", 7)}));
    expectNothing("nested binary", binary(xml(QByteArray("<array>").repeated(100) +
                                              QByteArray("</array>").repeated(100))));
}

void BundleTest::namesThatLeadElsewhere()
{
    for (const QString name : {"../../evil", "a/b", "..", "."}) {
        m_volume.writeBundle("/A.app", {{"CFBundleExecutable", name}, {"CFBundleIconFile", name}});
        const auto bundle = Bundle::bundleWithPath("/A.app");
        QVERIFY(bundle->executablePath().isNull() && bundle->iconPath().isNull());
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
