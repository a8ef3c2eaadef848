#include "system/platform/Workspace.h"
#include "system/platform/PathEncoding.h"
#include "system/platform/Task.h"
#include "tests/support/TestVolume.h"

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QTest>

#include <csignal>
#include <filesystem>

using platform::Task;
using platform::Workspace;

class WorkspaceTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();
    void icons();
    void launch();
    void refusedLaunches();
    void openAndShow();

private:
    QStringList processes() const
    {
        return Task::outputLines("/bin/ps", {"-A"}).filter(m_volume.host("/A.app"));
    }

    Workspace &m_workspace = Workspace::sharedWorkspace();
    TestVolume m_volume;
};

void WorkspaceTest::cleanup()
{
    for (const QString &process : processes()) {
        ::kill(process.trimmed().section(' ', 0, 0).toInt(), SIGKILL);
    }
    m_volume.clear();
}

// Each bundle is of its own, as icons are kept, and not read again when they are gone.
void WorkspaceTest::icons()
{
    for (const QString folder : {"red", "none"}) {
        const QFileInfoList files = QDir(CORPUS + folder).entryInfoList(QDir::Files);
        QVERIFY(!files.isEmpty());
        for (const QFileInfo &file : files) {
            const QString bundle = '/' + file.fileName();
            m_volume.writeInfo(bundle + "/Resources", {{"CFBundleIconFile", "icon"}});
            const QString icon = m_volume.host(bundle + "/Resources/icon");
            QVERIFY(QFile::copy(file.filePath(), icon));
            for (int i = 0; i < 2; ++i) {
                const QImage shown = m_workspace.iconForFile(bundle).pixmap(128).toImage();
                const bool isRed = shown.pixelColor(64, 64) == QColor(Qt::red);
                QVERIFY2(!shown.isNull() && isRed == (folder == "red"), qPrintable(bundle));
                QFile::remove(icon);
            }
        }
    }
}

void WorkspaceTest::launch()
{
    // Neither a longer path nor one that ends like the program's is the program's.
    m_volume.writeBundle("/A.app", {{"CFBundleExecutable", "run"}});
    m_volume.writeProgram("/A.app/Contents/MacOS/run", "while :; do sleep 1; done\n");
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

// Neither what this host cannot run, nor what is no program, nor one of the host behind a link.
void WorkspaceTest::refusedLaunches()
{
    m_volume.writeBundle("/A.app", {{"CFBundleExecutable", "run"}});
    m_volume.write("/A.app/Contents/MacOS/run", "");
    for (const char *script :
         {"printf '\\317\\372\\355\\376\\7\\0\\0\\1' >run; chmod 700 run", ": >run",
          "echo touch $0/ran >run", // a shell would run it
          "printf '#!/bin/sh\\ntouch %s/ran\\n' $0 >run; chmod 400 run", "rm run",
          "ln -s /bin/true run"}) {
        QCOMPARE(QProcess::execute("sh", {"-ec", QString("cd \"$0\"; ") + script,
                                          m_volume.host("/A.app/Contents/MacOS")}),
                 0);
        QVERIFY2(!m_workspace.launchApplication("/A.app"), script);
    }
    QVERIFY(!m_volume.exists("/A.app/Contents/MacOS/ran"));
}

void WorkspaceTest::openAndShow()
{
    // Without a bus the file manager's service is not there, and what opens an item is ours.
    m_volume.writeProgram("/bin/xdg-open",
                          "printf '%s\\n' \"$@\" >>'" + m_volume.host("/opened").toUtf8() + "'\n");
    qputenv("PATH", m_volume.host("/bin").toUtf8() + ':' + qgetenv("PATH"));
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/none");
    const auto opened = [this](bool isOpened) {
        QByteArray path;
        while (isOpened && !path.endsWith('\n')) {
            QTest::qWait(5);
            path = m_volume.read("/opened");
        }
        QFile::remove(m_volume.host("/opened"));
        return path.replace(m_volume.host({}).toUtf8(), {});
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
    QFile::link("/bin", m_volume.host("/bin/link"));
    QCOMPARE(open("/bin/link"), "/bin\n");
    QCOMPARE(show("/bin/link"), "/bin\n");
    QCOMPARE(open("/missing") + show("/missing"), "");
}

QTEST_MAIN(WorkspaceTest)
#include "WorkspaceTest.moc"
