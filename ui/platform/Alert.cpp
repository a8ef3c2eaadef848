#include "ui/platform/Alert.h"

#include "ui/platform/InputGate.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QMainWindow>
#include <QMessageBox>
#include <QPushButton>

namespace platform {

namespace {

/// The window that the alert belongs to. None is active right after an earlier alert has closed.
QWidget *owner()
{
    if (QWidget *const active = QApplication::activeWindow()) {
        return active;
    }
    for (QWidget *window : QApplication::topLevelWidgets()) {
        if (window->isVisible() && qobject_cast<QMainWindow *>(window)) {
            return window;
        }
    }
    return nullptr;
}

/// The plain cursor for as long as it lives, also over that of a command under way.
class PlainCursor
{
public:
    PlainCursor() { QApplication::setOverrideCursor(Qt::ArrowCursor); }
    ~PlainCursor() { QApplication::restoreOverrideCursor(); }
    PlainCursor(const PlainCursor &) = delete;
    PlainCursor &operator=(const PlainCursor &) = delete;
};

/// Returns when the screen shows the window again and nothing of an alert before it, or soon where
/// there is no way to tell.
void waitForWindow(const QWidget *window)
{
    constexpr int longestWait = 250; // milliseconds
    QElapsedTimer waiting;
    waiting.start();
    do {
        QGuiApplication::sync();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    } while (window && !window->isActiveWindow() && !waiting.hasExpired(longestWait));
    QGuiApplication::sync();
}

} // namespace

int Alert::runModal()
{
    const auto cancel = m_buttonTitles.indexOf(QStringLiteral("Cancel"));
    if (InputGate::shared().isEndRequested() && (cancel >= 0 || m_isDispensable)) {
        return firstButtonReturn + int(qMax(cancel, 0));
    }
    QWidget *const window = owner();
    QMessageBox box(window);
    box.setWindowModality(Qt::ApplicationModal);
    box.setWindowTitle(window ? window->windowTitle() : QApplication::applicationDisplayName());
    box.setIcon(QMessageBox::Warning);
    box.setText(m_messageText);
    box.setInformativeText(m_informativeText);
    for (QLabel *label : box.findChildren<QLabel *>()) {
        // The texts hold paths, which may look like markup.
        label->setTextFormat(Qt::PlainText);
        if (label->text() == m_messageText) {
            QFont bold = label->font();
            bold.setBold(true);
            label->setFont(bold);
        } else if (label->text() == m_informativeText) {
            label->setMinimumWidth(60 * label->fontMetrics().averageCharWidth());
        }
    }

    QList<QPushButton *> buttons;
    for (const QString &title : std::as_const(m_buttonTitles)) {
        // Within one role every desktop's layout keeps the order of addition.
        QPushButton *const button = box.addButton(title, QMessageBox::ActionRole);
        button->setText(title); // without the mnemonic that a desktop may have put in
        buttons.append(button);
        if (title == u"Cancel" || m_buttonTitles.size() == 1) {
            box.setEscapeButton(button);
        }
    }
    if (!buttons.isEmpty()) {
        box.setDefaultButton(buttons.first());
    }

    {
        const InputGate::Pause pause;
        const PlainCursor cursor;
        box.exec();
    }
    if (InputGate::shared().isWorkUnderWay()) {
        waitForWindow(window);
    }
    // Closed without any button, when the session ends, say: nobody has agreed to anything.
    QAbstractButton *const button = box.clickedButton() ? box.clickedButton() : box.escapeButton();
    const auto index = buttons.indexOf(static_cast<QPushButton *>(button));
    return firstButtonReturn + int(qMax(index, 0));
}

} // namespace platform
