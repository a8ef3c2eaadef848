#include "system/platform/PropertyList.h"

#include <QStringEncoder>
#include <QTest>
#include <QtEndian>

using platform::PropertyList;

namespace {

constexpr std::array<std::string_view, 2> keys = {"name", "other"};

QString nameIn(const QByteArray &bytes)
{
    return PropertyList(bytes, keys).text("name");
}

/// A dictionary in XML; the text of an entry "name" must follow from it.
QByteArray xml(const QByteArray &entries)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Example//DTD PLIST 1.0//EN\" "
           "\"http://example.org/p.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>" +
           entries + "</dict>\n</plist>\n";
}

const QByteArray name = "<key>name</key><string>a</string>";

QByteArray bigEndian(qsizetype value)
{
    QByteArray bytes(8, 0);
    qToBigEndian(quint64(value), bytes.data());
    return bytes;
}

/// A binary property list of the objects, the first being the root. Numbers of objects have one
/// byte.
QByteArray binary(const QByteArrayList &objects)
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

/// A binary text of less than 15 bytes.
QByteArray ascii(const QByteArray &text)
{
    return char(0x50 + text.size()) + text;
}

/// A binary dictionary with the one key "name".
QByteArray binaryName(const QByteArray &value)
{
    return binary({"\xD1\x01\x02", ascii("name"), value});
}

/// One that gives a text for "name", and a further value for another key.
QByteArray binaryBeside(const QByteArray &value)
{
    return binary({"\xD2\x01\x02\x03\x04", ascii("name"), ascii("b"), ascii("a"), value});
}

} // namespace

class PropertyListTest : public QObject
{
    Q_OBJECT

private slots:
    void texts_data();
    void texts();
    void encodings_data();
    void encodings();
    void none_data();
    void none();
    void everyCut();
};

void PropertyListTest::texts_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("text");
    const auto row = [](const QByteArray &tag, const QByteArray &bytes, const QString &text) {
        QTest::newRow(tag) << bytes << text;
    };
    const auto inXml = [&](const QByteArray &tag, const QByteArray &element, const QString &text) {
        row("XML: " + tag, xml("<key>name</key>" + element), text);
    };
    inXml("text", "<string>Gr\xc3\xb6\xc3\x9f</string>", "Größ");
    inXml("empty text", "<string/>", "");
    inXml("blanks stay", "<string> a\n </string>", " a\n ");
    inXml("pieces", "<string>a<!-- -->b<![CDATA[<c>]]>&amp;&#x64;</string>", "ab<c>&d");
    for (const char *other :
         {"<true/>", "<integer>42</integer>", "<data>AAEC</data>", "<real>1</real>",
          "<date>2026-03-02T09:30:00Z</date>", "<array><string>a</string></array>",
          "<dict><key>name</key><string>a</string></dict>"}) {
        inXml(other, other, {});
    }
    inXml("too long", "<string>" + QByteArray(16'385, 'a') + "</string>", {});
    inXml("long", "<string>" + QByteArray(16'384, 'a') + "</string>", QString(16'384, 'a'));
    const QByteArray inner = "<key>inner</key><dict><key>name</key><string>b</string></dict>";
    row("nested before", xml(inner + name), "a");
    row("nested behind", xml(name + inner), "a");
    row("the last of equal keys", xml("<key>name</key><string>b</string>" + name), "a");
    row("the last is no text", xml(name + "<key>name</key><true/>"), {});
    row("missing", xml("<key>nam</key><string>a</string>"), {});
    row("bare dictionary", "<dict>" + name + "</dict>", "a");
    row("blanks before", " \r\n" + xml(name), "a");
    row("anything behind", xml(name) + "<" + '\0', "a");

    const auto inBinary = [&](const QByteArray &tag, const QByteArray &object,
                              const QString &text) {
        row("binary: " + tag, binaryName(object), text);
    };
    inBinary("text", ascii("abc"), "abc");
    inBinary("empty text", ascii(""), "");
    inBinary("UTF-16", QByteArray("\x63\0G\0r\0\xF6", 7), "Grö");
    inBinary("a count of its own", QByteArray("\x5F\x10\x12") + "CFBundleIdentifier",
             "CFBundleIdentifier");
    inBinary("a NUL", QByteArray("\x62\0a\0\0", 5), {});
    inBinary("long", "\x5F\x11\x40" + QByteArray(1, 0) + QByteArray(16'384, 'a'),
             QString(16'384, 'a'));
    inBinary("too long", "\x5F\x11\x40\x01" + QByteArray(16'385, 'a'), {});
    for (const char *number : {"\x09", "\x10\x2A", "\x43\x01\x02\x03", "\xD1\x01\x02"}) {
        inBinary(QByteArray(number).toHex(), number, {});
    }
    row("UTF-16 key", binary({"\xD1\x01\x02", QByteArray("\x64\0n\0a\0m\0e", 9), ascii("a")}), "a");
    row("the first of equal keys",
        binary({"\xD2\x01\x01\x02\x03", ascii("name"), ascii("a"), ascii("b")}), "a");
    row("the first is no text", binary({"\xD2\x01\x01\x02\x03", ascii("name"), "\x09", ascii("b")}),
        {});
    row("another value", binaryBeside("\x09"), "a");
}

void PropertyListTest::texts()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, text);
    QCOMPARE(nameIn(bytes), text);
    QCOMPARE(nameIn(bytes).isNull(), text.isNull());
}

void PropertyListTest::encodings_data()
{
    QTest::addColumn<QByteArray>("bytes");
    using Encoder = QStringEncoder;
    const auto document = [](const char *encoding, const QString &text = "Gr\u00f6\u00dfe") {
        const QString declared =
            encoding ? QString(" encoding='%1'").arg(QLatin1String(encoding)) : QString();
        return QString("<?xml version='1.0'%1?>\n<plist><dict><key>name</key><string>%2</string>"
                       "</dict></plist>")
            .arg(declared, text);
    };
    const QByteArray mark = "\xEF\xBB\xBF";
    QTest::newRow("UTF-8") << document("UTF-8").toUtf8();
    QTest::newRow("UTF-8 with a mark") << QByteArray(mark + document("UTF-8").toUtf8());
    QTest::newRow("UTF-8 with a mark, not declared") << QByteArray(mark + document({}).toUtf8());
    for (const auto encoding : {Encoder::Utf16LE, Encoder::Utf16BE}) {
        const char *const form = Encoder::nameForEncoding(encoding);
        // "UTF-8": saved in another encoding by a program that left the declaration as it was.
        for (const char *declared : {"UTF-16", "utf-8", static_cast<const char *>(nullptr)}) {
            QTest::addRow("%s, %s", form, declared)
                << QByteArray(Encoder(encoding)(document(declared)));
            QTest::addRow("%s with a mark, %s", form, declared)
                << QByteArray(Encoder(encoding, Encoder::Flag::WriteBom)(document(declared)));
        }
    }
    QTest::newRow("ISO-8859-1") << document("ISO-8859-1").toLatin1();
    QTest::newRow("iso-8859-1") << document("iso-8859-1").toLatin1();
    QTest::newRow("US-ASCII") << document("US-ASCII", "Gr&#xF6;&#223;e").toLatin1();
    QTest::newRow("an encoding unknown here") << document("x-mac-roman").toUtf8();
    QTest::newRow("declared wrongly") << document("UTF-16").toUtf8();
    QTest::newRow("a broken byte elsewhere")
        << QByteArray(document("UTF-8").toUtf8().replace("<dict>", "<dict><!-- \xE9 -->"));
}

void PropertyListTest::encodings()
{
    QFETCH(QByteArray, bytes);
    QCOMPARE(nameIn(bytes), "Gr\u00f6\u00dfe");
}

void PropertyListTest::none_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const auto row = [](const char *tag, const QByteArray &bytes) { QTest::newRow(tag) << bytes; };
    row("empty", {});
    row("something else", "\x7f" + QByteArray("ELF"));
    row("no dictionary", "<plist><array>" + name + "</array></plist>");
    row("text behind an unclosed tag", xml(name + "<key>b</key><string>"));
    row("an ampersand", xml(name + "<key>b</key><string>a & b</string>"));
    row("a NUL", xml(name + "<key>b</key><string>a" + QByteArray(1, 0) + "</string>"));
    row("an unknown element", xml(name + "<key>b</key><array><b/></array>"));
    row("an unknown root", "<p>" + name + "</p>");
    row("an element in a text", xml(name + "<key>b</key><string>a<true/></string>"));
    row("a value without a key", xml("<string>b</string>" + name));
    row("a key without a value", xml("<key>b</key>" + name));
    row("a key in a list", xml(name + "<key>b</key><array><key>c</key></array>"));
    row("declared entities",
        "<!DOCTYPE plist [<!ENTITY a 'a'>]><plist><dict>" + name + "</dict></plist>");
    row("nested beyond measure", xml(name + "<key>b</key>" + QByteArray("<array>").repeated(100) +
                                     QByteArray("</array>").repeated(100)));
    row("a tag beyond measure", xml(name + "<key>b</key><true" + QByteArray(200'000, ' ') + "/>"));

    const QByteArray whole = binaryName(ascii("a"));
    const auto changed = [&](qsizetype position, char byte) {
        return whole.first(whole.size() - position) + byte +
               whole.sliced(whole.size() - position + 1);
    };
    row("no trailer", whole.first(40));
    row("no offsets", changed(26, 0));
    row("offsets too large", changed(26, 9));
    row("no references", changed(25, 0));
    row("objects beyond the table", changed(17, 4));
    row("a root that is not there", changed(9, 3));
    row("a root that is no dictionary", changed(9, 1));
    row("a table in the trailer", changed(1, char(whole.size() - 20)));
    row("a value that is not there", binary({"\xD2\x01\x02\x02\x03", ascii("name"), ascii("a")}));
    row("a key that is no text",
        binary({"\xD2\x01\x03\x02\x02", ascii("name"), ascii("a"), "\x10\x01"}));
    row("a text beyond the end", binaryBeside("\x5F\x11\xFF\xFF"));
    row("a count beyond all numbers", binaryBeside("\x5F\x13" + QByteArray(8, '\xFF')));
    row("a count of 16 bytes", binaryBeside("\x5F\x14" + QByteArray(16, 0)));
    row("a count that is no number", binaryBeside("\x5F" + ascii("a")));
    row("a dictionary beyond the end", binaryBeside("\xDF\x12\x7F\xFF\xFF\xFF"));
}

void PropertyListTest::none()
{
    QFETCH(QByteArray, bytes);
    QVERIFY(nameIn(bytes).isNull());
}

/// What is cut off anywhere gives the text or nothing, and no byte beyond the end is read.
void PropertyListTest::everyCut()
{
    const QByteArray inXml = xml(name);
    const qsizetype end = inXml.indexOf("</dict>") + 7;
    for (qsizetype size = 0; size <= inXml.size(); ++size) {
        // A copy of its own, so that a sanitizer sees its end.
        const QByteArray cut(inXml.constData(), size);
        QCOMPARE(nameIn(cut), size < end ? QString() : QString("a"));
    }
    const QByteArray inBinary = binaryName(ascii("a"));
    for (qsizetype size = 0; size < inBinary.size(); ++size) {
        QVERIFY(nameIn(QByteArray(inBinary.constData(), size)).isNull());
    }
}

QTEST_GUILESS_MAIN(PropertyListTest)
#include "PropertyListTest.moc"
