#include "system/platform/PropertyList.h"

#include <QDir>
#include <QTest>

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
    const auto bytesOf = [](qsizetype number) {
        return QByteArray(6, 0) + char(number >> 8) + char(number);
    };
    return start + offsets + sizes + bytesOf(3) + bytesOf(0) + bytesOf(start.size());
}

} // namespace

/// The lists in the folders of CORPUS and a few more, as bytes.
class PropertyListTest : public QObject
{
    Q_OBJECT

private slots:
    void texts_data();
    void texts();
    void corpus_data();
    void corpus() { texts(); }
    void everyCut();
};

void PropertyListTest::texts_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *tag, const QByteArray &bytes, const QString &text) {
        QTest::newRow(tag) << bytes << text;
    };
    row("XML", xml("<string>Gr\xc3\xb6\xc3\x9f</string>"), "Größ");
    row("empty", xml("<string/>"), "");
    row("blanks stay", xml("<string> a\n </string>"), " a\n ");
    row("pieces", xml("<string>a<!-- -->b<![CDATA[<c>]]>&amp;&#x64;</string>"), "ab<c>&d");
    row("long", xml("<string>" + QByteArray(16'384, 'a') + "</string>"), QString(16'384, 'a'));
    row("binary",
        binary("\x53"
               "abc"),
        "abc");
    row("binary, empty", binary("\x50"), "");
    row("binary, UTF-16", binary(QByteArray("\x63\0G\0r\0\xF6", 7)), "Grö");
    row("binary, a count of its own", binary("\x5F\x10\x12" + QByteArray(18, 'a')),
        QString(18, 'a'));
    row("binary, long", binary("\x5F\x11\x40" + QByteArray(1, 0) + QByteArray(16'384, 'a')),
        QString(16'384, 'a'));
}

void PropertyListTest::texts()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, text);
    QCOMPARE(nameIn(bytes), text);
    QCOMPARE(nameIn(bytes).isNull(), text.isNull());
}

void PropertyListTest::corpus_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("text");
    for (const auto &[folder, text] :
         {std::pair("a", "a"), std::pair("encodings", "Größe"), std::pair("none", "")}) {
        const QDir lists(QStringLiteral(CORPUS) + QLatin1String(folder));
        for (const QFileInfo &list : lists.entryInfoList(QDir::Files)) {
            QFile file(list.filePath());
            QVERIFY(file.open(QIODevice::ReadOnly));
            QTest::addRow("%s/%s", folder, qPrintable(list.fileName()))
                << file.readAll() << (*text == '\0' ? QString() : QString(text));
        }
    }
}

/// What is cut off anywhere gives the text or nothing, and no byte beyond the end is read.
void PropertyListTest::everyCut()
{
    const QByteArray inXml = xml("<string>a</string>");
    const qsizetype end = inXml.indexOf("</dict>") + 7;
    for (qsizetype size = 0; size <= inXml.size(); ++size) {
        // A copy of its own, so that a sanitizer sees its end.
        const QByteArray cut(inXml.constData(), size);
        QCOMPARE(nameIn(cut), size < end ? QString() : QString("a"));
    }
    const QByteArray inBinary = binary("\x51\x61");
    for (qsizetype size = 0; size < inBinary.size(); ++size) {
        QVERIFY(nameIn(QByteArray(inBinary.constData(), size)).isNull());
    }
}

QTEST_GUILESS_MAIN(PropertyListTest)
#include "PropertyListTest.moc"
