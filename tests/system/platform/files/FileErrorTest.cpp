#include "system/platform/files/FileError.h"

#include <QTest>

#include <cerrno>

class FileErrorTest : public QObject
{
    Q_OBJECT

private slots:
    void printableNames_data();
    void printableNames();
    void descriptions();
};

void FileErrorTest::printableNames_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("shown");
    const auto row = [](const char *tag, const QByteArray &name, const QByteArray &shown) {
        QTest::newRow(tag) << name << shown;
    };
    row("UTF-8", "Größe €😀", "Größe €😀");
    row("controls", "a\nb\tc\x7f", "a\\nb\\x09c\\x7F");
    row("C1 control", "\xc2\x85", "\\xC2\\x85");
    row("separators and directions", "\xe2\x80\xa8\xe2\x80\xae\xe2\x81\xa6",
        "\\xE2\\x80\\xA8\\xE2\\x80\\xAE\\xE2\\x81\\xA6");
    row("Latin-1",
        "Gr\xf6\xdf"
        "e",
        "Gr\\xF6\\xDFe");
    row("cut", "\xe2\x82", "\\xE2\\x82");
    row("overlong", "\xc0\xaf\xe0\x80\xaf\xf0\x80\x80\xaf",
        "\\xC0\\xAF\\xE0\\x80\\xAF\\xF0\\x80\\x80\\xAF");
    row("surrogate and beyond", "\xed\xa0\x80\xf4\x90\x80\x80",
        "\\xED\\xA0\\x80\\xF4\\x90\\x80\\x80");
    row("long", QByteArray(5000, 'x') + "€" + QByteArray(299, 'y'), "…" + QByteArray(299, 'y'));
}

void FileErrorTest::printableNames()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, shown);
    QCOMPARE(QByteArray::fromStdString(platform::printableName(name.toStdString())), shown);
}

void FileErrorTest::descriptions()
{
    const platform::FileError error{platform::FileAction::Copy, "x.plist",
                                    platform::errorReason(ENOSPC)};
    QCOMPARE(error.description(), std::string("“x.plist” could not be copied: the disk is full."));
    QVERIFY(!platform::errorReason(EOWNERDEAD).empty());
    QCOMPARE(platform::errorReason(987654), std::string("error 987654"));
}

QTEST_GUILESS_MAIN(FileErrorTest)

#include "FileErrorTest.moc"
