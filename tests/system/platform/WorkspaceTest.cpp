#include "system/platform/Workspace.h"
#include "system/platform/Task.h"
#include "tests/support/TestVolume.h"

#include <QBuffer>
#include <QImage>
#include <QTest>
#include <QtEndian>

#include <csignal>

using platform::Task;
using platform::Workspace;

namespace {

QByteArray block(const char *type, const QByteArray &content)
{
    QByteArray length(4, 0);
    qToBigEndian(quint32(content.size() + 8), length.data());
    return type + length + content;
}

QByteArray png(int size, const QColor &color)
{
    QImage image(size, size, QImage::Format_ARGB32);
    image.fill(color);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

/// An icon file with one PNG image of 128 pixels, between other blocks.
QByteArray icnsFile(const QColor &color, const QByteArray &before = {},
                    const QByteArray &after = {})
{
    return block("icns", before + block("ic07", png(128, color)) + after);
}

} // namespace

class WorkspaceTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void icons();
    void launch();
    void refusedLaunches_data();
    void refusedLaunches();
    void nothingToOpen();

private:
    void writeExecutable(const QByteArray &bytes)
    {
        m_volume.write("/A.app/Contents/MacOS/run", bytes);
        QFile::setPermissions(m_volume.host("/A.app/Contents/MacOS/run"),
                              QFile::ReadOwner | QFile::ExeOwner);
    }
    QStringList processes() const
    {
        return Task::outputLines("/bin/ps", {"-A"}).filter(m_volume.host("/A.app"));
    }

    Workspace &m_workspace = Workspace::sharedWorkspace();
    TestVolume m_volume;
};

void WorkspaceTest::init()
{
    m_volume.writeBundle("/A.app", {{"CFBundleExecutable", "run"}, {"CFBundleIconFile", "icon"}});
}

void WorkspaceTest::cleanup()
{
    for (const QString &process : processes()) {
        ::kill(process.trimmed().section(' ', 0, 0).toInt(), SIGKILL);
    }
    m_volume.clear();
}

void WorkspaceTest::icons()
{
    // One image is read whatever else is there: an image larger than the format allows, a table of
    // contents and a block that lie about lengths, four million blocks, a newer kind of image.
    const QByteArray files[] = {
        icnsFile(Qt::red),
        icnsFile(Qt::red, block("ic10", png(2048, Qt::blue))),
        icnsFile(Qt::red, block("TOC ", "ic07\xff\xff\xff\xf0")),
        icnsFile(Qt::red, {}, "ic08\xff\xff\xff\xff"),
        icnsFile(Qt::red, {}, block("abcd", {}).repeated(3'900'000)),
        icnsFile(Qt::red, block("ic09", QByteArray("\0\0\0\fjP  \r\n\x87\n", 12)))};
    const auto middle = [&](const QByteArray &file) {
        m_volume.write("/A.app/Contents/Resources/icon.icns", file);
        return m_workspace.iconForFile("/A.app").pixmap(128).toImage().pixelColor(64, 64);
    };
    for (const QByteArray &file : files) {
        QCOMPARE(middle(file), QColor(Qt::red));
    }
    QVERIFY(middle(png(128, Qt::red)) != QColor(Qt::red)); // no other format has a way in

    m_volume.write("/A.app/Contents/Resources/icon.icns", icnsFile(Qt::red).left(60));
    QVERIFY(!m_workspace.iconForFile("/A.app").isNull());
    QVERIFY(!m_workspace.iconForFile("/missing").pixmap(32).isNull());
}

void WorkspaceTest::launch()
{
    writeExecutable("#!/bin/sh\nwhile :; do sleep 1; done\n");
    QVERIFY(m_workspace.launchApplication("/A.app"));
    QTRY_COMPARE(processes().size(), 1);
    QVERIFY(!m_workspace.launchApplication("/A.app"));
    QCOMPARE(processes().size(), 1);
}

void WorkspaceTest::refusedLaunches_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("foreign format") << QByteArray("\xcf\xfa\xed\xfe\x07\0\0\x01", 8);
    // A shell would run this.
    QTest::newRow("no format") << "touch " + m_volume.host("/ran").toUtf8() + "\n";
    QTest::newRow("empty") << QByteArray();
}

void WorkspaceTest::refusedLaunches()
{
    QFETCH(QByteArray, bytes);
    writeExecutable(bytes);
    QVERIFY(!m_workspace.launchApplication("/A.app"));
    QVERIFY(!m_volume.exists("/ran"));

    // Nor is a program of the host run through a link.
    const QString program = m_volume.host("/A.app/Contents/MacOS/run");
    QFile::remove(program);
    QFile::link("/bin/true", program);
    QVERIFY(!m_workspace.launchApplication("/A.app"));
    QFile::remove(program);
    QVERIFY(!m_workspace.launchApplication("/A.app"));
    QVERIFY(!m_workspace.launchApplication("/missing"));
}

void WorkspaceTest::nothingToOpen()
{
    QVERIFY(!m_workspace.openURL(QUrl::fromLocalFile("/missing")));
    QVERIFY(!m_workspace.selectFile("/missing", ""));
}

QTEST_MAIN(WorkspaceTest)
#include "WorkspaceTest.moc"
