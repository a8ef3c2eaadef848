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
    void texts();
    void corpus();
    void everyCut();
};

void PropertyListTest::texts()
{
    const std::pair<QByteArray, QString> lists[] = {
        {xml("<string>Gr\xc3\xb6\xc3\x9f</string>"), "Größ"},
        {xml("<string/>"), ""},
        {xml("<string> a\n </string>"), " a\n "},
        {xml("<string>a<!-- -->b<![CDATA[<c>]]>&amp;&#x64;</string>"), "ab<c>&d"},
        {xml("<string>" + QByteArray(16'384, 'a') + "</string>"), QString(16'384, 'a')},
        {binary("\x52"
                "xy"),
         "xy"},
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

void PropertyListTest::corpus()
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
