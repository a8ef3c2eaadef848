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
    void responses_data();
    void responses();
    void everyAlertHasAnOwner();
    void endedWithoutAButton();
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

void AlertTest::responses_data()
{
    QTest::addColumn<QStringList>("buttons");
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("response");
    const QStringList both = {"Ok", "Cancel"};
    QTest::newRow("Return") << both << int(Qt::Key_Return) << 1000;
    QTest::newRow("Enter") << both << int(Qt::Key_Enter) << 1000;
    QTest::newRow("Escape") << both << int(Qt::Key_Escape) << 1001;
    QTest::newRow("closed") << both << 0 << 1001;
    QTest::newRow("Escape, Cancel first")
        << QStringList{"Cancel", "Ok"} << int(Qt::Key_Escape) << 1000;
    QTest::newRow("only button, Return") << QStringList{"Ok"} << int(Qt::Key_Return) << 1000;
    QTest::newRow("only button, Escape") << QStringList{"Ok"} << int(Qt::Key_Escape) << 1000;
    QTest::newRow("only button, closed") << QStringList{"Ok"} << 0 << 1000;
}

void AlertTest::responses()
{
    QFETCH(QStringList, buttons);
    QFETCH(int, key);
    const int response = run(buttons, [&](QMessageBox &box) {
        if (key == 0) {
            box.close();
        } else {
            QTest::keyClick(&box, Qt::Key(key));
        }
    });
    QTEST(response, "response");
}

void AlertTest::everyAlertHasAnOwner()
{
    QMainWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    for (int i = 0; i < 3; ++i) {
        run({"Ok"}, [&](QMessageBox &box) {
            QCOMPARE(box.parentWidget(), &window);
            box.close();
        });
    }
}

void AlertTest::endedWithoutAButton()
{
    QCOMPARE(run({"Ok", "Cancel"}, [](QMessageBox &box) { box.done(0); }), 1001);
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
