#include "ui/platform/LayoutConnections.h"
#include "ui/platform/ArrayController.h"
#include "ui/platform/ViewController.h"

#include <QAction>
#include <QApplication>
#include <QDateTime>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QTest>

using platform::ArrayController;

class Location : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool found MEMBER m_found NOTIFY foundChanged)
    Q_PROPERTY(QDateTime date MEMBER m_date NOTIFY dateChanged)

signals:
    void foundChanged();
    void dateChanged();

private:
    bool m_found = false;
    QDateTime m_date;
};

class Record : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString name MEMBER m_name NOTIFY nameChanged)
    Q_PROPERTY(QString derived READ derived)
    Q_PROPERTY(Location *location READ location CONSTANT)

public:
    QString derived() const { return m_name.isNull() ? m_name : m_name + "!"; }
    Location *location() { return &m_location; }

signals:
    void nameChanged();

private:
    QString m_name;
    Location m_location;
};

class TestController : public platform::ViewController
{
    Q_OBJECT
    Q_PROPERTY(std::shared_ptr<platform::ArrayController> records MEMBER records)
    Q_PROPERTY(QPushButton *pressMe MEMBER button)
    Q_PROPERTY(QLabel *other MEMBER label)

public:
    using platform::ViewController::ViewController;

    std::shared_ptr<ArrayController> records;
    QPushButton *button = nullptr;
    QLabel *label = nullptr;
    QObjectList senders;
    Qt::CursorShape cursor = Qt::ArrowCursor;
    bool wasDown = false;

public slots:
    void pressedAction(QObject *sender)
    {
        senders.append(sender);
        wasDown = button->isDown();
        cursor = QApplication::overrideCursor()->shape();
    }
};

class LayoutConnectionsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qputenv("TARNWELL_VOLUME", "/no/such/disk"); }
    void init();
    void outletsAndActions();
    void textBindings();
    void conditions();
    void datesInTheUsersLocale();

private:
    QLabel *label(const char *expression, const char *property = "bind_text")
    {
        auto *const result = new QLabel(m_layout.get());
        result->setProperty(property, expression);
        return result;
    }
    void connectLayout()
    {
        m_connections =
            std::make_unique<platform::LayoutConnections>(*m_layout, *m_controller, nullptr);
        for (const auto &record : {m_first, m_second}) {
            m_controller->records->addObject(record);
        }
    }

    platform::Coder m_coder;
    std::unique_ptr<QWidget> m_layout;
    std::unique_ptr<TestController> m_controller;
    std::unique_ptr<platform::LayoutConnections> m_connections;
    std::shared_ptr<Record> m_first;
    std::shared_ptr<Record> m_second;
};

void LayoutConnectionsTest::init()
{
    m_connections.reset();
    m_controller = std::make_unique<TestController>(m_coder);
    m_layout = std::make_unique<QWidget>();
    m_layout->setProperty("arrayController", "records");
    m_first = std::make_shared<Record>();
    m_second = std::make_shared<Record>();
    m_first->setProperty("name", "first");
}

void LayoutConnectionsTest::outletsAndActions()
{
    auto *const button = new QPushButton(m_layout.get());
    button->setObjectName("pressMe");
    button->setProperty("action", "pressedAction");
    auto *const command = new QAction(m_layout.get());
    command->setProperty("action", "pressedAction");
    auto *const wrongType = new QPushButton(m_layout.get());
    wrongType->setObjectName("other");
    connectLayout();
    QVERIFY(m_controller->records);
    QCOMPARE(m_controller->button, button);
    QVERIFY(!m_controller->label);

    button->click();
    QVERIFY(m_controller->wasDown && !button->isDown());
    QCOMPARE(m_controller->cursor, Qt::WaitCursor);
    QVERIFY(!QApplication::overrideCursor());
    command->trigger();
    QCOMPARE(m_controller->senders, QObjectList({button, command}));
}

void LayoutConnectionsTest::textBindings()
{
    QLabel *const name = label("selection.name");
    name->setProperty("null_text", "unnamed");
    name->setProperty("none_text", "nothing selected");
    m_layout->setProperty("bind_windowTitle", "selection.name");
    m_layout->setProperty("format_windowTitle", "%1 – Program");
    m_layout->setProperty("none_windowTitle", "Program");
    QLabel *const derived = label("selection.derived");
    derived->setProperty("format_text", "Called %1");
    connectLayout();
    ArrayController &records = *m_controller->records;
    QCOMPARE(name->text(), "nothing selected");
    QCOMPARE(m_layout->windowTitle(), "Program");

    records.setSelectionIndexes({0, 1});
    QCOMPARE(name->text(), "first");
    QCOMPARE(m_layout->windowTitle(), "first – Program");
    records.setSelectionIndexes({1});
    QCOMPARE(name->text(), "unnamed");
    QCOMPARE(derived->text(), "");
    // A derived text follows the notifications of the properties beside it.
    m_second->setProperty("name", "second");
    QCOMPARE(name->text(), "second");
    QCOMPARE(derived->text(), "Called second!");
    // So they do for another topmost record after a rearrangement.
    records.setSelectionIndexes({0, 1});
    QCOMPARE(name->text(), "first");
    records.setSortDescriptors({{"name", false}});
    records.rearrangeObjects();
    QCOMPARE(name->text(), "second");
    records.setSelectionIndexes({0});
    // A record that is no longer selected has no say.
    m_first->setProperty("name", "renamed");
    QCOMPARE(name->text(), "second");
    m_second->setProperty("name", "");
    QCOMPARE(name->text(), "");
    records.setSelectionIndexes({});
    QCOMPARE(name->text(), "nothing selected");
}

void LayoutConnectionsTest::conditions()
{
    QLabel *const found = label("selection.location.found", "bind_enabled");
    QLabel *const both =
        label("selection.location.found & !selection.location.date", "bind_visible");
    QLabel *const several = label("hasMultipleSelection", "bind_enabled");
    QLabel *const problem = label("disk.problem");
    connectLayout();
    m_layout->show();
    QVERIFY(problem->text().contains("/no/such/disk"));
    QVERIFY(!found->isEnabled() && !both->isVisible() && !several->isEnabled());
    m_controller->records->setSelectionIndexes({0});
    m_first->location()->setProperty("found", true);
    QVERIFY(found->isEnabled() && both->isVisible() && !several->isEnabled());
    m_first->location()->setProperty("date", QDateTime::currentDateTime());
    QVERIFY(found->isEnabled() && !both->isVisible());
    m_controller->records->setSelectionIndexes({0, 1});
    QVERIFY(several->isEnabled());
    m_controller->records->setSelectionIndexes({});
    QVERIFY(!found->isEnabled() && !several->isEnabled());
}

void LayoutConnectionsTest::datesInTheUsersLocale()
{
    QLabel *const date = label("selection.location.date");
    date->setProperty("null_text", "never");
    connectLayout();
    m_controller->records->setSelectionIndexes({0});
    QCOMPARE(date->text(), "never");
    const QDateTime time({2026, 7, 3}, {14, 2}, Qt::UTC);
    QLocale::setDefault(QLocale("de_DE"));
    m_first->location()->setProperty("date", time);
    QCOMPARE(date->text(), "03.07.2026 14:02");
    QLocale::setDefault(QLocale("en_US"));
    m_first->location()->setProperty("date", time.addSecs(60));
    QCOMPARE(date->text().simplified(), "7/3/2026 2:03 PM");
    QLocale::setDefault(QLocale::system());
}

QTEST_MAIN(LayoutConnectionsTest)
#include "LayoutConnectionsTest.moc"
