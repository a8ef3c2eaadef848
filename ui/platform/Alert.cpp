#include "ui/platform/Alert.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

namespace platform {

namespace {

QMessageBox::Icon iconOfStyle(Alert::Style style)
{
    switch (style) {
    case Alert::Informational:
        return QMessageBox::Information;
    case Alert::Critical:
        return QMessageBox::Critical;
    case Alert::Warning:
        break;
    }
    return QMessageBox::Warning;
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

} // namespace

int Alert::runModal()
{
    QMessageBox box(QApplication::activeWindow());
    box.setWindowModality(Qt::ApplicationModal);
    box.setWindowTitle(QApplication::applicationDisplayName());
    box.setIcon(iconOfStyle(m_style));
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

    const PlainCursor cursor;
    box.exec();
    const auto closedBy = buttons.indexOf(static_cast<QPushButton *>(box.clickedButton()));
    return firstButtonReturn + int(qMax(closedBy, 0));
}

} // namespace platform
