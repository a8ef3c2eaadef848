#include "system/platform/files/FileError.h"

#include <QTest>

#include <cerrno>

class FileErrorTest : public QObject
{
    Q_OBJECT

private slots:
    void printableNames();
    void descriptions();
};

void FileErrorTest::printableNames()
{
    const std::pair<QByteArray, QByteArray> names[] = {
        {"Größe €😀", "Größe €😀"},
        {"a\nb\tc\x7f", "a\\nb\\x09c\\x7F"},
        {"\xc2\x85", "\\xC2\\x85"}, // a control of Latin-1
        // A separator, two directions.
        {"\xe2\x80\xa8\xe2\x80\xae\xe2\x81\xa6", "\\xE2\\x80\\xA8\\xE2\\x80\\xAE\\xE2\\x81\\xA6"},
        // Latin-1, cut off, overlong, a surrogate and what lies beyond the last character.
        {"Gr\xf6\xdf", "Gr\\xF6\\xDF"},
        {"\xe2\x82", "\\xE2\\x82"},
        {"\xc0\xaf\xe0\x80\xaf\xf0\x80\x80\xaf", "\\xC0\\xAF\\xE0\\x80\\xAF\\xF0\\x80\\x80\\xAF"},
        {"\xed\xa0\x80\xf4\x90\x80\x80", "\\xED\\xA0\\x80\\xF4\\x90\\x80\\x80"},
        {QByteArray(5000, 'x') + "€" + QByteArray(299, 'y'), "…" + QByteArray(299, 'y')}};
    for (const auto &[name, shown] : names) {
        QCOMPARE(QByteArray::fromStdString(platform::printableName(name.toStdString())), shown);
    }
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
