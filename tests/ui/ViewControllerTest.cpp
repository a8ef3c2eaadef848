#include "ui/ViewController.h"
#include "tests/support/NotificationLog.h"
#include "tests/support/TestVolume.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTest>
#include <QTimer>

#include <filesystem>

/// What the controller does, and does not do; the window's own tests see its words.
class ViewControllerTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void loadsTheListAndThenItsSelection();
    void silentCommands();
    void conversations();

private:
    using Command = void (ViewController::*)(QObject *);

    /// Gives a command and answers its alerts in turn by these buttons. Returns what they say.
    QStringList give(Command command, QStringList answers = {})
    {
        QStringList said;
        QTimer user;
        connect(&user, &QTimer::timeout, this, [&] {
            auto *const alert = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!alert) {
                return;
            }
            said.append(alert->text() + '\n' + alert->informativeText());
            const QString answer = answers.isEmpty() ? QString() : answers.takeFirst();
            for (QAbstractButton *const button : alert->buttons()) {
                if (button->text() == answer) {
                    return button->click();
                }
            }
            alert->close();
        });
        user.start();
        (m_controller.get()->*command)(nullptr);
        return said;
    }
    void select(const QList<int> &rows) { m_array->setSelectionIndexes(rows); }
    App *appAt(int row) { return static_cast<App *>(m_array->arrangedObjects()[row].get()); }

    TestVolume m_volume;
    platform::Coder m_coder;
    platform::ProgressIndicator m_indicator;
    std::shared_ptr<platform::ArrayController> m_array;
    std::unique_ptr<ViewController> m_controller;
};

/// Lists three applications, the first of which has preferences and is selected meanwhile.
void ViewControllerTest::init()
{
    m_volume.clear();
    for (const QString name : {"gamma", "Beta", "alpha"}) {
        m_volume.writeBundle("/Applications/" + name + ".app",
                             {{"CFBundleName", name}, {"CFBundleIdentifier", "vnd." + name}});
    }
    m_volume.write("/users/anna/Library/Preferences/vnd.alpha.plist", "alpha");
    m_volume.installTool("mdfind", "printf '/Applications/%s.app\\n' alpha gamma Beta");
    m_controller = std::make_unique<ViewController>(m_coder);
    m_array = std::make_shared<platform::ArrayController>();
    connect(m_array.get(), &platform::ArrayController::objectAdded, this, [&] {
        QVERIFY(m_indicator.isVisible());
        select({0});
    });
    m_controller->setAppsArrayController(m_array);
    m_controller->setProgressIndicator(&m_indicator);
    m_controller->viewDidLoad();
}

void ViewControllerTest::loadsTheListAndThenItsSelection()
{
    QVERIFY(m_indicator.isHidden());
    QCOMPARE(m_array->arrangedObjects().size(), 3);
    QCOMPARE(QStringList({appAt(0)->name(), appAt(1)->name(), appAt(2)->name()}),
             QStringList({"alpha", "Beta", "gamma"}));
    QVERIFY(!appAt(0)->prefs()->found());

    NotificationLog log;
    log.observe(*appAt(0)->prefs(), "prefs");
    select({0, 2});
    QCOMPARE(log.take().filter("prefs.path=").size(), 2); // reset and found, once
    QVERIFY(appAt(2)->appIcon().isNull());
    m_controller->observeValueForKeyPath("selectionindexes", nullptr, {}, nullptr);
    m_controller->observeValueForKeyPath({}, nullptr, {}, nullptr);
    select({});
    QCOMPARE(log.take(), QStringList());
}

void ViewControllerTest::silentCommands()
{
    const QList<Command> commands = {
        &ViewController::backUpPrefsAction,   &ViewController::backUpDataAction,
        &ViewController::restorePrefsAction,  &ViewController::restoreDataAction,
        &ViewController::showPrefsFileAction, &ViewController::showDataAction,
        &ViewController::launchAppAction,     &ViewController::showAppAction};
    select({1}); // of which nothing was found
    for (const Command command : commands.mid(0, 4)) {
        QCOMPARE(give(command), QStringList());
    }
    select({0});
    select({});
    for (const Command command : commands) {
        QCOMPARE(give(command), QStringList());
    }
    QVERIFY(!m_volume.exists("/users/anna/Library/Preferences/vnd.alpha.plist.bak"));
}

void ViewControllerTest::conversations()
{
    const QString prefsQuestion =
        "Restoring of Preferences\nAre you sure you want to restore this app's preferences from "
        "backup? The current preferences will be overwritten.\n\n(The preferences backup will not "
        "be deleted and can be restored again in future.)";
    const QString dataQuestion =
        "Data Restore\nAre you sure you want to restore this app's data from backup?\n\n(The data "
        "backup will not be deleted and can be restored again, but the current data will be "
        "overwritten.)";
    const QString library = "/users/anna/Library/";
    const std::tuple<Command, Command, QString, QString, QString, QString, QString, QString>
        kinds[] = {{&ViewController::backUpPrefsAction, &ViewController::restorePrefsAction,
                    "Preferences", library + "Preferences/vnd.alpha.plist", "", prefsQuestion,
                    "were", ")."},
                   {&ViewController::backUpDataAction, &ViewController::restoreDataAction, "Data",
                    library + "Application Support/alpha", "/file", dataQuestion, "was", ")"}};
    for (const auto &[backUp, restore, name, path, file, question, were, end] : kinds) {
        const QString word = name.toLower();
        const QString already = name + " already backed up\nA backup of this application's " +
                                word +
                                " already exists.\n\nDo you want to override the existing backup?";
        const QString running = "Application is Running\nThe application is currently running.\n\n"
                                "It is recommended you terminate it first before restoring its " +
                                word + ". Are you sure you want to continue?";
        const QString restored =
            name + " Restored!\nThe " + word + ' ' + were + " successfully restored from backup.";
        const QString error = "%1 Error\nThere was an error %2 the " + word +
                              ".\n\nPlease make sure you have appropriate permissions!\n(" + path;

        const QString live = path + file;
        const QString backup = path + ".bak" + file;
        const auto both = [&] { return m_volume.read(live) + m_volume.read(backup); };
        m_volume.installTool("ps", "echo /Applications/alpha.app/x");
        m_volume.write(live, "first ");
        select({});
        select({0});
        QCOMPARE(give(backUp), QStringList());
        m_volume.write(live, "second ");
        QCOMPARE(give(backUp, {"Cancel"}), QStringList({already}));
        QCOMPARE(give(restore, {"Cancel"}), QStringList({question}));
        QCOMPARE(give(restore, {"Ok", "Cancel"}), QStringList({question, running}));
        QCOMPARE(both(), "second first ");
        QCOMPARE(give(restore, {"Ok", "Ok", "Ok"}), QStringList({question, running, restored}));
        QCOMPARE(both(), "first first ");
        m_volume.write(live, "third ");
        QCOMPARE(give(backUp, {"Ok"}), QStringList({already}));
        QCOMPARE(both(), "third third ");

        m_volume.installTool("ps", "exit 1");
        std::filesystem::remove_all(m_volume.host(path + ".bak").toStdString());
        QCOMPARE(give(backUp, {"Ok", "Ok"}),
                 QStringList({already, error.arg("Backup", "backing up") + ".bak" + end}));
        QCOMPARE(give(restore, {"Ok", "Ok"}),
                 QStringList({question, error.arg("Restore", "restoring") + ")."}));
    }
}

QTEST_MAIN(ViewControllerTest)
#include "ViewControllerTest.moc"
