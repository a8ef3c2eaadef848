#include "system/platform/FileManager.h"
#include "system/platform/PathEncoding.h"
#include "tests/support/TestVolume.h"

#include <QTest>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

using platform::bytesFromPath;
using platform::FileManager;
using platform::pathFromBytes;

class FileManagerTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void namesInAnyEncoding();
    void contents();
    void sizes();
    void dates();

private:
    TestVolume m_volume; // before the manager, which works on the volume that is current then
    const FileManager &m_manager = FileManager::defaultManager();
};

void FileManagerTest::namesInAnyEncoding()
{
    QDir().mkpath(m_volume.host("/Folder"));
    // UTF-8 (also such that half a character looks like a byte to come back), Latin-1, both, a byte
    // order mark, an encoded surrogate.
    const std::pair<QByteArray, QString> names[] = {
        {"Gr\xc3\xb6\xc3\x9f", u"Gr\u00f6\u00df"_qs},
        {"\xf0\x9f\x92\x80", u"\U0001F480"_qs},
        {"Gr\xf6\xdf", u"Gr"_qs + QChar(0xDCF6) + QChar(0xDCDF)},
        {"\xf0\x9f\x92\x80\xf6", u"\U0001F480"_qs + QChar(0xDCF6)},
        {"\xef\xbb\xbfx", u"\uFEFFx"_qs},
        {"\xed\xb3\xb6", QString(QChar(0xDCED)) + QChar(0xDCB3) + QChar(0xDCB6)}};
    for (const auto &[name, text] : names) {
        QCOMPARE(pathFromBytes(name.toStdString()), text);
        QCOMPARE(QByteArray::fromStdString(bytesFromPath(text)), name);
        const QByteArray host = m_volume.host("/Folder/").toUtf8() + name;
        QCOMPARE(::mkdir(host.constData(), 0700), 0);
        QVERIFY(m_manager.directoryHasContents("/Folder"));
        QVERIFY(m_manager.fileExistsAtPath("/Folder/" + text));
        QVERIFY(m_manager.removeItemAtPath("/Folder/" + text, nullptr));
        QVERIFY(::access(host.constData(), F_OK) != 0);
    }
}

void FileManagerTest::contents()
{
    m_volume.write("/there", "x");
    QFile::link("/there", m_volume.host("/absolute")); // absolute on the volume
    QFile::link("/etc/passwd", m_volume.host("/host"));
    QCOMPARE(m_manager.contentsAtPath("/absolute", 1000), QByteArray("x"));
    QVERIFY(!m_manager.contentsAtPath("/absolute", 0) && !m_manager.contentsAtPath("/host", 1000));
    QVERIFY(m_manager.fileExistsAtPath("/absolute") && !m_manager.fileExistsAtPath("/host"));
    QVERIFY(m_manager.modificationDate("/host").isValid());

    QVERIFY(!m_manager.removeItemAtPath(QString::fromUtf16(u"/there\0b", 8), nullptr));
    QVERIFY(m_manager.fileExistsAtPath("/there"));

    // What is no plain file is not even opened: a device may act on that.
    const QByteArray pipe = m_volume.host("/pipe").toUtf8();
    QCOMPARE(::mkfifo(pipe.constData(), 0600), 0);
    const platform::FileDescriptor events(::inotify_init1(IN_NONBLOCK));
    QVERIFY(::inotify_add_watch(events.get(), pipe.constData(), IN_OPEN) >= 0);
    QVERIFY(!m_manager.contentsAtPath("/pipe", 1000));
    char event = 0;
    QVERIFY(::read(events.get(), &event, 1) < 0 && errno == EAGAIN);
    QDir().mkpath(m_volume.host("/folder/.hidden"));
    QVERIFY(m_manager.directoryHasContents("/") && m_manager.directoryHasContents("/folder"));
    for (const char *path : {"/folder/.hidden", "/there", "/none"}) {
        QVERIFY2(!m_manager.directoryHasContents(path), path);
    }
}

void FileManagerTest::sizes()
{
    // Together they have a byte more than a number of single precision tells.
    for (const auto &[size, together] : {std::pair(1'500'000, 1.5F), {15'277'217, 16.777217F}}) {
        const QString file = "/sizes/" + QString::number(size);
        m_volume.write(file, "");
        QVERIFY(QFile::resize(m_volume.host(file), size));
        QVERIFY(m_manager.directorySize("/sizes") == together); // and not only nearly
    }
    QCOMPARE(m_manager.directorySize("/none"), 0.0F);
}

void FileManagerTest::dates()
{
    m_volume.write("/file", "");
    // To the millisecond, cut; what a disk can hold at the most is at least a date.
    for (const auto &[date, milliseconds] :
         {std::pair("-1.5", -1500LL), {"1600000000.999999999", 1'600'000'000'999}}) {
        m_volume.setDate("/file", date);
        QCOMPARE(m_manager.modificationDate("/file").toMSecsSinceEpoch(), milliseconds);
    }
    QFile::link("/file", m_volume.host("/link")); // which has a date of its own
    m_volume.setDate("/link", "5");
    QCOMPARE(m_manager.modificationDate("/link").toMSecsSinceEpoch(), 5000);
    m_volume.setDate("/file", "9223372036854774");
    QVERIFY(m_manager.modificationDate("/file").isValid());
    QVERIFY(!m_manager.modificationDate("/missing").isValid());
}

QTEST_GUILESS_MAIN(FileManagerTest)
#include "FileManagerTest.moc"
