#include "ui/platform/Alert.h"
#include "ui/platform/InputGate.h"

#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

using platform::Alert;
using platform::InputGate;

class AlertTest : public QObject
{
    Q_OBJECT

private slots:
    void responses();
    void withinACommand();

private:
    /// Shows an alert with these buttons and lets `user` look at it and close it.
    int run(const QStringList &buttons, const std::function<void(QMessageBox &)> &user)
    {
        Alert alert;
        alert.setMessageText("Title");
        alert.setInformativeText("Line\n(/p/<b>x</b>).");
        for (const QString &title : buttons) {
            alert.addButtonWithTitle(title);
        }
        QTimer::singleShot(0, this, [&] {
            auto *const box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            const auto end = qScopeGuard([box] { box->isVisible() ? box->done(0) : void(); });
            QTRY_VERIFY(box->isActiveWindow());
            user(*box);
        });
        return alert.runModal();
    }
};

void AlertTest::responses()
{
    const auto enter = [](QMessageBox &box) { QTest::keyClick(&box, Qt::Key_Enter); };
    const auto escape = [](QMessageBox &box) { QTest::keyClick(&box, Qt::Key_Escape); };
    const auto close = [](QMessageBox &box) { box.close(); };
    const auto vanish = [](QMessageBox &box) { box.done(0); }; // without any button
    QCOMPARE(run({"Ok", "Cancel"}, enter), 1000);
    QCOMPARE(run({"Ok", "Cancel"}, escape), 1001);
    QCOMPARE(run({"Ok", "Cancel"}, close), 1001);
    QCOMPARE(run({"Ok", "Cancel"}, vanish), 1001);
    QCOMPARE(run({"Cancel", "Ok"}, escape), 1000);
    QCOMPARE(run({"Ok"}, escape), 1000);
}

void AlertTest::withinACommand()
{
    QMainWindow window;
    window.setWindowTitle("Name – Program");
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    const InputGate::Work command;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const int response = run({"Ok", "Cancel"}, [&](QMessageBox &box) {
        QCOMPARE(box.parentWidget(), &window);
        QCOMPARE(box.windowTitle(), window.windowTitle());
        QCOMPARE(QApplication::overrideCursor()->shape(), Qt::ArrowCursor);
        QVERIFY(box.icon() == QMessageBox::Warning && box.isModal());
        for (const QLabel *label : box.findChildren<QLabel *>()) {
            QCOMPARE(label->textFormat(), Qt::PlainText);
        }
        // In the order of addition under every desktop's habit.
        for (const char *layout : {"0", "1", "2", "3"}) {
            box.setStyleSheet(QStringLiteral("* { button-layout: %1 }").arg(layout));
            QCoreApplication::processEvents();
            const QList<QAbstractButton *> buttons = box.buttons();
            QCOMPARE(buttons.size(), 2);
            QCOMPARE(buttons[0]->x() < buttons[1]->x(), buttons[0]->text() == "Ok");
        }
        QTimer::singleShot(20, &window, [&] { window.activateWindow(); });
        InputGate::shared().requestEnd(); // as a signal does
        QVERIFY(!box.isVisible());
    });
    QCOMPARE(response, 1001);         // which agrees to nothing
    QVERIFY(window.isActiveWindow()); // nothing of the question stays while the work goes on
    QCOMPARE(QApplication::overrideCursor()->shape(), Qt::WaitCursor);
    QApplication::restoreOverrideCursor();
}

QTEST_MAIN(AlertTest)
#include "AlertTest.moc"
