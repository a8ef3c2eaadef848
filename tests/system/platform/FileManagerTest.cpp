#include "system/platform/FileManager.h"
#include "system/platform/PathEncoding.h"
#include "tests/support/TestVolume.h"

#include <QTest>

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
    void namesInAnyEncoding_data();
    void namesInAnyEncoding();
    void existenceFollowsLinks();
    void listings();
    void errorsAreDescribed();

private:
    TestVolume m_volume; // before the manager, which works on the volume that is current then
    const FileManager &m_manager = FileManager::defaultManager();
};

void FileManagerTest::namesInAnyEncoding_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("ASCII") << QByteArray("plain");
    QTest::newRow("UTF-8") << QByteArray("Gr\xc3\xb6\xc3\x9f"
                                         "e \xf0\x9f\x98\x80");
    QTest::newRow("Latin-1") << QByteArray("Gr\xf6\xdf"
                                           "e");
    QTest::newRow("both") << QByteArray("\xc3\xb6\xf6");
    QTest::newRow("byte order mark") << QByteArray("\xef\xbb\xbfx");
    QTest::newRow("encoded surrogate") << QByteArray("\xed\xb3\xb6");
}

void FileManagerTest::namesInAnyEncoding()
{
    QFETCH(QByteArray, name);
    const QString text = pathFromBytes(name.toStdString());
    QCOMPARE(QByteArray::fromStdString(bytesFromPath(text)), name);

    QDir().mkpath(m_volume.host("/Folder"));
    const QByteArray host = m_volume.host("/Folder/").toUtf8() + name;
    QCOMPARE(::mkdir(host.constData(), 0700), 0);
    QCOMPARE(m_manager.subpathsAtPath("/Folder"), QStringList({text}));
    QVERIFY(m_manager.fileExistsAtPath("/Folder/" + text));
    QVERIFY(m_manager.removeItemAtPath("/Folder/" + text, nullptr));
    QVERIFY(::access(host.constData(), F_OK) != 0);
}

void FileManagerTest::existenceFollowsLinks()
{
    m_volume.write("/there", "x");
    QFile::link("/there", m_volume.host("/absolute")); // absolute on the volume
    QFile::link("../../../../there", m_volume.host("/upwards"));
    QFile::link("/etc/passwd", m_volume.host("/host"));
    QVERIFY(m_manager.fileExistsAtPath("/absolute") && m_manager.fileExistsAtPath("/upwards"));
    QVERIFY(!m_manager.fileExistsAtPath("/host") && !m_manager.fileExistsAtPath("relative"));
    QVERIFY(m_manager.attributesOfItemAtPath("/host")); // the link itself
    QVERIFY(!m_manager.contentsAtPath("/host", 1000));
    QCOMPARE(m_manager.contentsAtPath("/absolute", 1000), QByteArray("x"));
    QVERIFY(!m_manager.contentsAtPath("/absolute", 0));
}

void FileManagerTest::listings()
{
    m_volume.write("/F/a/b/c", "12345");
    m_volume.write("/F/d", "");
    QStringList subpaths = *m_manager.subpathsAtPath("/F");
    subpaths.sort();
    QCOMPARE(subpaths, QStringList({"a", "a/b", "a/b/c", "d"}));
    QCOMPARE(m_manager.contentsOfDirectoryAtPath("/F")->size(), 2);
    QVERIFY(!m_manager.contentsOfDirectoryAtPath("/F/d") && !m_manager.subpathsAtPath("/F/d"));
    QVERIFY(!m_manager.contentsOfDirectoryAtPath("/missing"));
    QCOMPARE(m_manager.directorySize("/F/d"), 0.0f);
    QCOMPARE(m_manager.attributesOfItemAtPath("/F/a/b/c")->fileSize, 5u);

    m_volume.setDate("/F/d", -1500);
    QCOMPARE(m_manager.modificationDate("/F/d").toMSecsSinceEpoch(), -1500);
    m_volume.setDate("/F/d",
                     std::numeric_limits<qint64>::max() - 1000); // or what the disk can hold
    QVERIFY(m_manager.attributesOfItemAtPath("/F/d"));
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
