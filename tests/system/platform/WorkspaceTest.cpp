#include "system/platform/Workspace.h"
#include "system/platform/PathEncoding.h"
#include "system/platform/Task.h"
#include "tests/support/TestVolume.h"

#include <QBuffer>
#include <QImage>
#include <QProcess>
#include <QTest>
#include <QtEndian>

#include <csignal>
#include <filesystem>

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
    void missingPrograms();
    void openAndShow();

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
    const auto middle = [](const QString &bundle) {
        const QIcon icon = Workspace::sharedWorkspace().iconForFile(bundle);
        return icon.pixmap(128).toImage().pixelColor(64, 64);
    };
    const QColor red(Qt::red);
    int bundles = 0; // each of its own, as icons are kept
    const auto color = [&](const QString &name, const QString &fileName, const QByteArray &file) {
        const QString bundle = QStringLiteral("/%1.app").arg(++bundles);
        m_volume.writeBundle(bundle, {{"CFBundleIconFile", name}});
        m_volume.write(bundle + "/Contents/Resources/" + fileName, file);
        return middle(bundle);
    };
    for (const QByteArray &file : files) {
        QCOMPARE(color("icon", "icon.icns", file), red);
    }
    QVERIFY(color("icon", "icon.icns", icnsFile(Qt::red).left(60)) != red);
    QVERIFY(!m_workspace.iconForFile("/missing").pixmap(32).isNull());

    // What is named may be an image without a container.
    QCOMPARE(color("icon", "icon", icnsFile(Qt::red)), red);
    QCOMPARE(color("icon.png", "icon.png", png(128, Qt::red)), red);
    QVERIFY(color("icon.png", "icon.png", png(2048, Qt::red)) != red);
    QVERIFY(color("icon", "icon.icns", "P6 1 1 255 \xff") != red); // no other format has a way in

    // An icon that was asked for lately is not read again.
    QFile::remove(m_volume.host("/1.app/Contents/Resources/icon.icns"));
    QCOMPARE(middle("/1.app"), red);
}

void WorkspaceTest::launch()
{
    // Neither a longer path nor one that ends like the program's is the program's.
    writeExecutable("#!/bin/sh\nwhile :; do sleep 1; done\n");
    const QString program = m_volume.host("/A.app/Contents/MacOS/run");
    QProcess other;
    other.start("/bin/sh", {"-c", "sleep 60; :", program + "2", "/x" + program});
    QTRY_COMPARE(processes().size(), 1);
    QVERIFY(m_workspace.launchApplication("/A.app"));
    QTRY_COMPARE(processes().size(), 2);
    QVERIFY(!m_workspace.launchApplication("/A.app"));
    QVERIFY(!m_workspace.launchApplication("/a.app")); // which is the same
    QCOMPARE(processes().size(), 2);
    other.kill();
    other.waitForFinished();
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
}

// Nor is what is no program, or one of the host behind a link.
void WorkspaceTest::missingPrograms()
{
    const QString program = m_volume.host("/A.app/Contents/MacOS/run");
    writeExecutable("#!/bin/sh\n");
    QFile::setPermissions(program, QFile::ReadOwner);
    QVERIFY(!m_workspace.launchApplication("/A.app"));
    QFile::remove(program);
    QFile::link("/bin/true", program);
    QVERIFY(!m_workspace.launchApplication("/A.app"));
    QFile::remove(program);
    QVERIFY(!m_workspace.launchApplication("/A.app"));
    QVERIFY(!m_workspace.launchApplication("/missing"));
}

void WorkspaceTest::openAndShow()
{
    // Without a bus the file manager's service is not there, and what opens an item is ours.
    m_volume.write("/bin/xdg-open", "#!/bin/sh\nprintf '%s\\n' \"$@\" >>'" +
                                        m_volume.host("/opened").toUtf8() + "'\n");
    QFile::setPermissions(m_volume.host("/bin/xdg-open"), QFile::ReadOwner | QFile::ExeOwner);
    qputenv("PATH", m_volume.host("/bin").toUtf8() + ':' + qgetenv("PATH"));
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/none");
    const auto opened = [this](bool isOpened) {
        QByteArray path;
        const bool isTold = isOpened && QTest::qWaitFor([&] {
                                path = m_volume.read("/opened");
                                return path.endsWith('\n');
                            });
        QFile::remove(m_volume.host("/opened"));
        return isTold ? path.replace(m_volume.host({}).toUtf8(), {}) : path;
    };
    const auto open = [&](const QString &path) {
        return opened(m_workspace.openURL(QUrl::fromLocalFile(path)));
    };
    const auto show = [&](const QString &path) { return opened(m_workspace.selectFile(path, "")); };

    // In no encoding.
    const std::string folder = "/Caf\xe9 100%20 \xc3\xa9";
    std::filesystem::create_directories(m_volume.host({}).toStdString() + folder + "/B.app");
    const QString item = platform::pathFromBytes(folder + "/B.app");
    QCOMPARE(open(item), "file:///Caf%E9%20100%2520%20%C3%A9/B.app\n");
    QCOMPARE(show(item), "file:///Caf%E9%20100%2520%20%C3%A9\n");

    // A link is shown where it is, and what it leads to on the volume is opened.
    QFile::link("/bin", m_volume.host("/A.app/link"));
    QCOMPARE(open("/A.app/link"), "/bin\n");
    QCOMPARE(show("/A.app/link"), "/A.app\n");
    QCOMPARE(open("/missing") + show("/missing"), "");
}

QTEST_MAIN(WorkspaceTest)
#include "WorkspaceTest.moc"
