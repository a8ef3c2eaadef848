#include "ui/platform/Alert.h"

#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <algorithm>

using platform::Alert;

class AlertTest : public QObject
{
    Q_OBJECT

private slots:
    void responses();
    void everyAlertHasAnOwner();
    void looks();

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
            QTRY_VERIFY(box->isActiveWindow());
            user(*box);
        });
        return alert.runModal();
    }
};

void AlertTest::responses()
{
    const QStringList both = {"Ok", "Cancel"};
    const auto close = [](QMessageBox &box) { box.close(); };
    const auto press = [](Qt::Key key) {
        return [key](QMessageBox &box) { QTest::keyClick(&box, key); };
    };
    QCOMPARE(run(both, press(Qt::Key_Return)), 1000);
    QCOMPARE(run(both, press(Qt::Key_Enter)), 1000);
    QCOMPARE(run(both, press(Qt::Key_Escape)), 1001);
    QCOMPARE(run(both, close), 1001);
    QCOMPARE(run(both, [](QMessageBox &box) { box.done(0); }), 1001); // without any button
    QCOMPARE(run({"Cancel", "Ok"}, press(Qt::Key_Escape)), 1000);
    QCOMPARE(run({"Ok"}, press(Qt::Key_Return)), 1000);
    QCOMPARE(run({"Ok"}, press(Qt::Key_Escape)), 1000);
    QCOMPARE(run({"Ok"}, close), 1000);
}

void AlertTest::everyAlertHasAnOwner()
{
    QMainWindow window;
    window.setWindowTitle("Name – Program");
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    for (int i = 0; i < 3; ++i) {
        run({"Ok"}, [&](QMessageBox &box) {
            QCOMPARE(box.parentWidget(), &window);
            QCOMPARE(box.windowTitle(), window.windowTitle());
            box.close();
        });
    }
}

void AlertTest::looks()
{
    run({"Ok", "Cancel"}, [&](QMessageBox &box) {
        QCOMPARE(box.icon(), QMessageBox::Warning);
        QCOMPARE(box.windowModality(), Qt::ApplicationModal);
        QCOMPARE(box.text(), "Title");
        QCOMPARE(box.informativeText(), "Line\n(/p/<b>x</b>).");
        for (const QLabel *label : box.findChildren<QLabel *>()) {
            QCOMPARE(label->textFormat(), Qt::PlainText);
        }
        // In the order of addition under every desktop's habit.
        for (const char *layout : {"0", "1", "2", "3"}) {
            box.setStyleSheet(QStringLiteral("* { button-layout: %1 }").arg(layout));
            QCoreApplication::processEvents();
            QList<QAbstractButton *> buttons = box.buttons();
            std::sort(buttons.begin(), buttons.end(),
                      [](auto *a, auto *b) { return a->x() < b->x(); });
            QCOMPARE(buttons.size(), 2);
            QCOMPARE(buttons[0]->text(), "Ok");
            QCOMPARE(buttons[1]->text(), "Cancel");
        }
        box.close();
    });
}

QTEST_MAIN(AlertTest)
#include "AlertTest.moc"
