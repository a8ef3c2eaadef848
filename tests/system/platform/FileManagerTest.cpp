#include "system/platform/FileManager.h"
#include "system/platform/PathEncoding.h"
#include "tests/support/TestVolume.h"

#include <QTest>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

using platform::bytesFromPath;
using platform::Error;
using platform::FileManager;
using platform::pathFromBytes;

class FileManagerTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void namesInAnyEncoding();
    void contents();
    void dates();
    void errorsAreDescribed();

private:
    TestVolume m_volume; // before the manager, which works on the volume that is current then
    const FileManager &m_manager = FileManager::defaultManager();
};

void FileManagerTest::namesInAnyEncoding()
{
    QDir().mkpath(m_volume.host("/Folder"));
    // ASCII, UTF-8, Latin-1, both, a byte order mark, an encoded surrogate.
    for (const QByteArray name : {"plain", "Gr\xc3\xb6\xc3\x9f \xf0\x9f\x98\x80", "Gr\xf6\xdf",
                                  "\xc3\xb6\xf6", "\xef\xbb\xbfx", "\xed\xb3\xb6"}) {
        const QString text = pathFromBytes(name.toStdString());
        QCOMPARE(QByteArray::fromStdString(bytesFromPath(text)), name);
        const QByteArray host = m_volume.host("/Folder/").toUtf8() + name;
        QCOMPARE(::mkdir(host.constData(), 0700), 0);
        QCOMPARE(m_manager.contentsOfDirectoryAtPath("/Folder"), QStringList({text}));
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
    QCOMPARE(m_manager.contentsOfDirectoryAtPath("/")->size(), 3);
    QVERIFY(!m_manager.contentsOfDirectoryAtPath("/there"));

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

void FileManagerTest::dates()
{
    m_volume.write("/file", "");
    m_volume.setDate("/file", -1500);
    QCOMPARE(m_manager.modificationDate("/file").toMSecsSinceEpoch(), -1500);
    m_volume.setDate("/file",
                     std::numeric_limits<qint64>::max() - 1000); // or what the disk can hold
    QVERIFY(m_manager.attributesOfItemAtPath("/file"));
    QVERIFY(!m_manager.modificationDate("/missing").isValid());
}

void FileManagerTest::errorsAreDescribed()
{
    Error error;
    QVERIFY(!m_manager.copyItemAtPath("/missing\nfile", "/copy", &error));
    QVERIFY(error.localizedDescription.contains("missing"));
    QVERIFY(!error.localizedDescription.contains('\n'));
    QVERIFY(!m_manager.copyItemAtPath("/missing", "/copy", nullptr));
    QVERIFY(!m_manager.removeItemAtPath("/missing", &error));
    QVERIFY(!m_manager.copyItemAtPath(QString::fromUtf16(u"/a\0b", 4), "/copy", &error));
    m_volume.write("/a", "x");
    QVERIFY(!m_manager.removeItemAtPath(QString::fromUtf16(u"/a\0b", 4), nullptr));
    QVERIFY(m_volume.exists("/a"));
}

QTEST_GUILESS_MAIN(FileManagerTest)
#include "FileManagerTest.moc"
