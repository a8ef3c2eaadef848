#include "ui/ViewController.h"
#include "tests/support/NotificationLog.h"
#include "tests/support/TestVolume.h"

#include <QApplication>
#include <QTest>
#include <QTimer>

namespace {

const QString library = QStringLiteral("/Users/anna/Library/");

} // namespace

/// What the controller does, and does not do; the window's own tests see its words.
class ViewControllerTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void loadsTheListBeforeItObserves();
    void resolvesTheTopmostOfEachSelection();
    void silentCommands();

private:
    /// How many alerts a command shows.
    int alertsOf(void (ViewController::*action)(QObject *))
    {
        int alerts = 0;
        QTimer user;
        connect(&user, &QTimer::timeout, this, [&alerts] {
            if (QWidget *const alert = QApplication::activeModalWidget()) {
                ++alerts;
                alert->close();
            }
        });
        user.start(1);
        (m_controller.get()->*action)(nullptr);
        return alerts;
    }
    void select(const QList<int> &rows) { m_array->setSelectionIndexes(rows); }
    App *appAt(int row) { return static_cast<App *>(m_array->arrangedObjects()[row].get()); }

    TestVolume m_volume;
    platform::Coder m_coder;
    platform::ProgressIndicator m_indicator;
    std::shared_ptr<platform::ArrayController> m_array;
    std::unique_ptr<ViewController> m_controller;
};

void ViewControllerTest::init()
{
    // In an order of their own; the second has no settings at all.
    for (const QString name : {"gamma", "Beta", "alpha"}) {
        m_volume.writeBundle("/Applications/" + name + ".app",
                             {{"CFBundleName", name}, {"CFBundleIdentifier", "vnd." + name}});
    }
    m_volume.write(library + "Preferences/vnd.alpha.plist", "alpha");
    m_volume.write(library + "Application Support/alpha/x", "alpha");
    m_volume.installTool("mdfind", "cd \"$TARNWELL_VOLUME\"; printf '/%s\\n' Applications/*.app");
    m_volume.installTool("ps", "exit 0");
    m_array = std::make_shared<platform::ArrayController>();
    m_controller = std::make_unique<ViewController>(m_coder);
    m_controller->setAppsArrayController(m_array);
    m_controller->setProgressIndicator(&m_indicator);
    m_controller->viewDidLoad();
}

void ViewControllerTest::cleanup()
{
    m_controller.reset();
    m_volume.clear();
}

void ViewControllerTest::loadsTheListBeforeItObserves()
{
    QStringList names;
    for (int row = 0; row < 3; ++row) {
        names.append(appAt(row)->name());
    }
    QCOMPARE(names, QStringList({"alpha", "Beta", "gamma"}));
    QCOMPARE(m_array->sortDescriptors().size(), 1);
    QVERIFY(m_array->selectionIndexes().isEmpty() && m_indicator.isHidden());

    // A selection from before is not resolved, and an empty list is nothing special.
    m_controller = std::make_unique<ViewController>(QString(), nullptr);
    m_controller->setAppsArrayController(m_array);
    m_controller->setProgressIndicator(&m_indicator);
    select({0});
    m_volume.installTool("mdfind", "exit 1");
    m_controller->viewDidLoad();
    QVERIFY(!appAt(0)->prefs()->found());
    select({});
    select({0});
    QVERIFY(appAt(0)->prefs()->found());
}

void ViewControllerTest::resolvesTheTopmostOfEachSelection()
{
    select({0, 2});
    QVERIFY(appAt(0)->prefs()->found() && !appAt(0)->appIcon().isNull());
    QVERIFY(appAt(2)->appIcon().isNull());

    NotificationLog log;
    log.observe(*appAt(0), "app");
    log.observe(*appAt(0)->prefs(), "prefs");
    select({});
    m_controller->observeValueForKeyPath({}, nullptr, {}, nullptr);
    select({0});
    QCOMPARE(log.take().filter("prefs.path=").size(), 2); // reset and found, once
    m_controller->observeValueForKeyPath("selectionindexes", nullptr, {}, nullptr);
    m_controller->observeValueForKeyPath({}, nullptr, {}, nullptr);
    QCOMPARE(log.take(), QStringList());
    m_controller->observeValueForKeyPath("selectionIndexes", nullptr, {}, nullptr);
    QCOMPARE(log.take().size(), 6);
}

void ViewControllerTest::silentCommands()
{
    // Without a selection nothing happens.
    select({0});
    select({});
    m_volume.write(library + "Preferences/vnd.alpha.plist.bak", "backup");
    for (auto action : {&ViewController::showDataAction, &ViewController::showPrefsFileAction,
                        &ViewController::launchAppAction, &ViewController::showAppAction,
                        &ViewController::backUpPrefsAction, &ViewController::restorePrefsAction,
                        &ViewController::backUpDataAction, &ViewController::restoreDataAction}) {
        QCOMPARE(alertsOf(action), 0);
    }
    QVERIFY(!m_volume.exists(library + "Application Support/alpha.bak"));

    // Nor where nothing was found or backed up.
    select({1});
    for (auto action : {&ViewController::backUpPrefsAction, &ViewController::restorePrefsAction,
                        &ViewController::backUpDataAction, &ViewController::restoreDataAction}) {
        QCOMPARE(alertsOf(action), 0);
    }

    // A first backup asks nothing, says nothing and resolves nothing again.
    select({0, 1});
    NotificationLog log;
    log.observe(*appAt(0)->data(), "data");
    QCOMPARE(alertsOf(&ViewController::backUpDataAction), 0);
    QCOMPARE(log.take().size(), 2);
    QCOMPARE(m_volume.read(library + "Application Support/alpha.bak/x"), "alpha");
    QCOMPARE(m_volume.read(library + "Preferences/vnd.alpha.plist.bak"), "backup");
}

QTEST_MAIN(ViewControllerTest)
#include "ViewControllerTest.moc"
