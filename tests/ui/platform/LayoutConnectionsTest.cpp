#include "ui/platform/LayoutConnections.h"
#include "ui/platform/ArrayController.h"
#include "ui/platform/FilterField.h"
#include "ui/platform/TableView.h"
#include "ui/platform/ViewController.h"

#include <QAction>
#include <QApplication>
#include <QDateTime>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMainWindow>
#include <QMenu>
#include <QPushButton>
#include <QShortcut>
#include <QSpinBox>
#include <QTest>
#include <QWheelEvent>

using platform::ArrayController;

class TestController : public platform::ViewController
{
    Q_OBJECT
    Q_PROPERTY(std::shared_ptr<platform::ArrayController> records MEMBER records)

public:
    using platform::ViewController::ViewController;

    std::shared_ptr<ArrayController> records;
    QObjectList senders;
    std::function<void()> meanwhile = [] {};

public slots:
    void pressedAction(QObject *sender)
    {
        senders.append(sender);
        meanwhile();
    }
};

class LayoutConnectionsTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void actions();
    void inputDuringACommand();
    void textBindings();

private:
    template <typename Widget>
    Widget *add(const char *property = "unused", const char *value = nullptr)
    {
        auto *const result = new Widget(m_layout->centralWidget());
        result->setProperty(property, value);
        return result;
    }
    ArrayController &connectLayout()
    {
        m_connections =
            std::make_unique<platform::LayoutConnections>(*m_layout, *m_controller, nullptr);
        for (const auto &record : {m_first, m_second}) {
            m_controller->records->addObject(record);
        }
        m_controller->records->rearrangeObjects();
        m_layout->show();
        [[maybe_unused]] const bool isActive = QTest::qWaitForWindowActive(m_layout.get());
        return *m_controller->records;
    }

    platform::Coder m_coder;
    std::unique_ptr<QMainWindow> m_layout;
    std::unique_ptr<TestController> m_controller;
    std::unique_ptr<platform::LayoutConnections> m_connections;
    std::shared_ptr<QObject> m_first;
    std::shared_ptr<QObject> m_second;
};

void LayoutConnectionsTest::init()
{
    m_connections.reset();
    m_layout = std::make_unique<QMainWindow>();
    m_controller = std::make_unique<TestController>(m_coder);
    m_layout->setCentralWidget(new QWidget);
    m_layout->setProperty("arrayController", "records");
    m_first = std::make_shared<QObject>();
    m_second = std::make_shared<QObject>();
    m_first->setObjectName("first");
}

void LayoutConnectionsTest::actions()
{
    auto *const button = add<QPushButton>("action", "pressedAction");
    auto *const command = add<QAction>("action", "pressedAction");
    command->setShortcut(Qt::Key_F5);
    m_layout->addAction(command);
    connectLayout();
    m_controller->meanwhile = [&] {
        QCOMPARE(QApplication::overrideCursor()->shape(), Qt::WaitCursor);
        QCOMPARE(button->isDown(), m_controller->senders.last() == button);
    };
    button->click();
    QVERIFY(!button->isDown() && !QApplication::overrideCursor());
    const bool isRepeat = true;
    QTest::keyPress(m_layout.get(), Qt::Key_F5);
    QTest::simulateEvent(m_layout.get(), true, Qt::Key_F5, {}, {}, isRepeat);
    QTest::keyRelease(m_layout.get(), Qt::Key_F5);
    QCOMPARE(m_controller->senders, QObjectList({button, command}));
}

void LayoutConnectionsTest::inputDuringACommand()
{
    auto *const button = add<QPushButton>("action", "pressedAction");
    auto *const other = add<QPushButton>("action", "pressedAction");
    auto *const command = add<QAction>("action", "pressedAction");
    auto *const field = add<QLineEdit>();
    auto *const number = add<QSpinBox>();
    auto *const filter = add<platform::FilterField>("keys", "objectName");
    auto *const table = add<platform::TableView>("columns", "Name|objectName");
    QMenu menu;
    QShortcut shortcut(Qt::Key_F6, m_layout.get(), [field] { field->setText("shortcut"); });
    ArrayController &records = connectLayout();
    records.setSelectionIndexes({0});
    m_controller->meanwhile = [&] {
        QTest::mouseClick(other, Qt::LeftButton);
        QTest::mouseClick(table->horizontalHeader()->viewport(), Qt::LeftButton, {}, {9, 9});
        QTest::keyClick(other, Qt::Key_Space);
        QTest::keyClicks(field, "dropped");
        QTest::keyClick(field, Qt::Key_F6);
        const QPointF place = number->rect().center();
        QWheelEvent wheel(place, number->mapToGlobal(place), {}, {0, 120}, {}, {}, {}, false);
        QCoreApplication::sendEvent(number, &wheel);
        // Assistive technology acts on the widgets themselves.
        other->click();
        other->animateClick(); // which clicks a while later
        command->trigger();
        table->selectRow(1);
        filter->setText("nothing");
        field->setFocus();
        menu.popup({});
        QCoreApplication::postEvent(field, new QKeyEvent(QEvent::KeyPress, 0, {}, "late"));
    };
    QTest::mouseClick(button, Qt::LeftButton);
    m_controller->meanwhile = [] {};
    QCOMPARE(m_layout->focusWidget(), button);
    QTest::simulateEvent(field, true, Qt::Key_D, {}, "d", true); // held since then
    QTest::keyClicks(field, "x");
    QTRY_VERIFY(!other->isDown() && !menu.isVisible());
    QCOMPARE(m_controller->senders, QObjectList({button}));
    QCOMPARE(field->text(), "x");
    QCOMPARE(number->value(), 0);
    QVERIFY(records.sortDescriptors().isEmpty());
    QCOMPARE(filter->text(), "");
    QCOMPARE(records.selectionIndexes(), QList<int>({0}));
    QCOMPARE(table->selectionModel()->selectedRows().value(0).row(), 0);

    // Who clicks twice means it once, however short the command was.
    QTest::mouseClick(button, Qt::LeftButton);
    QTest::mouseDClick(button, Qt::LeftButton);
    QTest::mouseRelease(button, Qt::LeftButton);
    QCOMPARE(m_controller->senders, QObjectList({button, button}));

    // The window closes after the command.
    m_controller->meanwhile = [&] { QVERIFY(!m_layout->close()); };
    button->click();
    QTRY_VERIFY(!m_layout->isVisible());
}

void LayoutConnectionsTest::textBindings()
{
    auto *const name = add<QLabel>("bind_text", "selection.objectName");
    name->setProperty("null_text", "unnamed");
    name->setProperty("none_text", "nothing selected");
    m_layout->setProperty("bind_windowTitle", "selection.objectName");
    m_layout->setProperty("format_windowTitle", "%1 – Program");
    m_layout->setProperty("bind_windowIcon", "selection.icon");
    auto *const derived = add<QLabel>("bind_text", "selection.derived");
    derived->setProperty("format_text", "Called %1");
    auto *const several = add<QLabel>("bind_enabled", "hasMultipleSelection");
    auto *const date = add<QLabel>("bind_text", "selection.date");
    m_first->setProperty("date", QDateTime({2026, 7, 3}, {14, 2}, Qt::UTC));
    m_first->setProperty("icon", QIcon(QPixmap(1, 1)));
    ArrayController &records = connectLayout();
    QCOMPARE(name->text(), "nothing selected");

    records.setSelectionIndexes({0, 1});
    QCOMPARE(name->text(), "first");
    QCOMPARE(m_layout->windowTitle(), "first – Program");
    QVERIFY(!m_layout->windowIcon().isNull() && several->isEnabled());
    records.setSelectionIndexes({1});
    QVERIFY(m_layout->windowIcon().isNull() && !several->isEnabled());
    QCOMPARE(name->text(), "unnamed");
    QCOMPARE(derived->text(), "");
    // A derived text follows the notifications of the properties beside it.
    m_second->setProperty("derived", "2");
    m_second->setObjectName("second");
    QCOMPARE(name->text(), "second");
    QCOMPARE(derived->text(), "Called 2");
    // So they do for another topmost record after a rearrangement.
    records.setSelectionIndexes({0, 1});
    records.setSortDescriptors({{"objectName", false}});
    records.rearrangeObjects();
    QCOMPARE(name->text(), "second");
    m_second->setObjectName("");
    QCOMPARE(name->text(), "");
    // Dates are in the user's locale.
    for (auto [locale, text] :
         {std::pair("de_DE", "03.07.2026 14:02"), std::pair("en_US", "7/3/2026 2:02 PM")}) {
        QLocale::setDefault(QLocale(locale));
        records.setSelectionIndexes({});
        QCOMPARE(name->text(), "nothing selected");
        records.setSelectionIndexes({1});
        QCOMPARE(date->text().simplified(), text);
    }
    QLocale::setDefault(QLocale::system());
}

QTEST_MAIN(LayoutConnectionsTest)
#include "LayoutConnectionsTest.moc"
