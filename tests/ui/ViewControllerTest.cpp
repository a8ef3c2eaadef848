#include "ui/ViewController.h"
#include "tests/support/NotificationLog.h"
#include "tests/support/TestVolume.h"

#include <QApplication>
#include <QTest>
#include <QTimer>

/// What the controller does, and does not do; the window's own tests see its words.
class ViewControllerTest : public QObject
{
    Q_OBJECT

private slots:
    void loadsTheListBeforeItObserves();
    void resolvesTheTopmostOfEachSelection();
    void silentCommands();

private:
    void load(const QByteArray &mdfind)
    {
        m_volume.installTool("mdfind", mdfind);
        m_controller = std::make_unique<ViewController>(m_coder);
        m_controller->setAppsArrayController(m_array);
        m_controller->setProgressIndicator(&m_indicator);
        m_controller->viewDidLoad();
    }
    void select(const QList<int> &rows) { m_array->setSelectionIndexes(rows); }
    App *appAt(int row) { return static_cast<App *>(m_array->arrangedObjects()[row].get()); }

    TestVolume m_volume;
    platform::Coder m_coder;
    platform::ProgressIndicator m_indicator;
    std::shared_ptr<platform::ArrayController> m_array =
        std::make_shared<platform::ArrayController>();
    std::unique_ptr<ViewController> m_controller;
};

void ViewControllerTest::loadsTheListBeforeItObserves()
{
    for (const QString name : {"gamma", "Beta", "alpha"}) {
        m_volume.writeBundle("/Applications/" + name + ".app",
                             {{"CFBundleName", name}, {"CFBundleIdentifier", "vnd." + name}});
    }
    m_volume.write("/Users/anna/Library/Preferences/vnd.alpha.plist", "alpha");
    connect(m_array.get(), &platform::ArrayController::objectAdded, this, [&] {
        QVERIFY(m_indicator.isVisible());
        select({0});
    });
    load("printf '/Applications/%s.app\\n' alpha gamma Beta");
    QStringList names;
    for (int row = 0; row < 3; ++row) {
        names.append(appAt(row)->name());
        QVERIFY(!appAt(row)->prefs()->found()); // although it was selected meanwhile
    }
    QCOMPARE(names, QStringList({"alpha", "Beta", "gamma"}));
    QVERIFY(m_indicator.isHidden());
    load("exit 1"); // an empty list is nothing special
    select({});
    select({0});
    QVERIFY(appAt(0)->prefs()->found());
}

void ViewControllerTest::resolvesTheTopmostOfEachSelection()
{
    NotificationLog log;
    log.observe(*appAt(0)->prefs(), "prefs");
    select({});
    QCOMPARE(log.take(), QStringList());
    select({0, 2});
    QCOMPARE(log.take().filter("prefs.path=").size(), 2); // reset and found, once
    QVERIFY(appAt(2)->appIcon().isNull());
    m_controller->observeValueForKeyPath("selectionindexes", nullptr, {}, nullptr);
    m_controller->observeValueForKeyPath({}, nullptr, {}, nullptr);
    QCOMPARE(log.take(), QStringList());
}

void ViewControllerTest::silentCommands()
{
    using Command = void (ViewController::*)(QObject *);
    const QList<Command> ofSettings = {
        &ViewController::backUpPrefsAction, &ViewController::backUpDataAction,
        &ViewController::restorePrefsAction, &ViewController::restoreDataAction};
    const QList<Command> ofApps = {
        &ViewController::showDataAction, &ViewController::showPrefsFileAction,
        &ViewController::launchAppAction, &ViewController::showAppAction};
    const auto give = [&](const QList<Command> &commands) {
        for (const Command command : commands) {
            QTimer::singleShot(0, this, [] {
                if (QWidget *const alert = QApplication::activeModalWidget()) {
                    QTest::qFail("An alert is shown", __FILE__, __LINE__);
                    alert->close();
                }
            });
            (m_controller.get()->*command)(nullptr);
        }
    };
    select({0});
    select({});
    give(ofSettings + ofApps);
    select({1}); // of which nothing was found
    give(ofSettings);
    QVERIFY(!m_volume.exists("/Users/anna/Library/Preferences/vnd.alpha.plist.bak"));
}

QTEST_MAIN(ViewControllerTest)
#include "ViewControllerTest.moc"
