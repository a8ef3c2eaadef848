#include "ui/platform/ElidedLabel.h"

#include "ui/platform/PlainToolTip.h"
#include "ui/platform/TextMarks.h"

#include <QClipboard>
#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QHelpEvent>
#include <QMenu>
#include <QPainter>
#include <QStyle>
#include <QToolTip>

namespace platform {

ElidedLabel::ElidedLabel(QWidget *parent) : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setFocusPolicy(Qt::ClickFocus);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
}

QSize ElidedLabel::sizeHint() const
{
    return {fontMetrics().horizontalAdvance(singleLine(text())), fontMetrics().height() + 2};
}

QSize ElidedLabel::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * 8, sizeHint().height()};
}

bool ElidedLabel::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip && isElided()) {
        QToolTip::showText(static_cast<QHelpEvent *>(event)->globalPos(), plainToolTip(text()),
                           this);
        return true;
    }
    return QLabel::event(event);
}

void ElidedLabel::focusInEvent(QFocusEvent *event)
{
    QLabel::focusInEvent(event);
    if (event->reason() != Qt::MouseFocusReason) {
        setSelection(0, int(text().size()));
    }
}

void ElidedLabel::contextMenuEvent(QContextMenuEvent *event)
{
    QMenu menu(this);
    QAction *const copy = menu.addAction(tr("&Copy"));
    copy->setEnabled(!text().isEmpty());
    connect(copy, &QAction::triggered, this,
            [this] { QGuiApplication::clipboard()->setText(text()); });
    menu.exec(event->globalPos());
}

void ElidedLabel::paintEvent(QPaintEvent *event)
{
    if (hasFocus()) {
        QLabel::paintEvent(event);
        return;
    }
    QPainter painter(this);
    const QString elided =
        fontMetrics().elidedText(singleLine(text()), Qt::ElideMiddle, contentsRect().width());
    style()->drawItemText(&painter, contentsRect(),
                          int(QStyle::visualAlignment(layoutDirection(), alignment())), palette(),
                          isEnabled(), leftToRightMark + elided, foregroundRole());
}

bool ElidedLabel::isElided() const
{
    return fontMetrics().horizontalAdvance(singleLine(text())) > contentsRect().width() ||
           singleLine(text()) != text();
}

} // namespace platform
