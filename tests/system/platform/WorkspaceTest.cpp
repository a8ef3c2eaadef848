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

/// An icon file with one PNG image of 128 pixels.
QByteArray icnsFile(const QColor &color)
{
    QImage image(128, 128, QImage::Format_ARGB32);
    image.fill(color);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    const auto block = [](const char *type, const QByteArray &content) {
        QByteArray length(4, 0);
        qToBigEndian(quint32(content.size() + 8), length.data());
        return type + length + content;
    };
    return block("icns", block("ic07", png));
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
    m_volume.write("/A.app/Contents/Resources/icon.icns", icnsFile(Qt::red));
    QCOMPARE(m_workspace.iconForFile("/A.app").pixmap(128).toImage().pixelColor(64, 64),
             QColor(Qt::red));

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
