#include "ui/platform/Badge.h"

#include <QPainter>
#include <QPainterPath>
#include <QStyle>

namespace platform {

Badge::Badge(QWidget *parent) : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    QFont bold = font();
    bold.setWeight(QFont::DemiBold);
    setFont(bold);
}

void Badge::setKind(Kind kind)
{
    m_kind = kind;
    update();
}

void Badge::setText(const QString &text)
{
    m_text = text;
    setAccessibleName(text);
    updateGeometry();
    update();
}

QSize Badge::sizeHint() const
{
    return {signSize() * 4 / 3 + fontMetrics().horizontalAdvance(m_text), signSize() + 2};
}

QColor Badge::color() const
{
    const bool dark = palette().color(QPalette::Window).lightness() < 128;
    switch (m_kind) {
    case Attention:
        return dark ? QColor(0xf0, 0xb4, 0x4c) : QColor(0x9a, 0x5b, 0x00);
    case Fine:
        return dark ? QColor(0x6f, 0xcf, 0x8e) : QColor(0x1b, 0x73, 0x3c);
    case Absent:
        break;
    }
    return palette().color(QPalette::PlaceholderText);
}

void Badge::paintSign(QPainter &painter, const QRectF &square) const
{
    const qreal line = square.width() / 8;
    const QRectF disc = square.adjusted(line, line, -line, -line);
    painter.setPen(QPen(color(), line));
    painter.setBrush(m_kind == Absent ? QBrush(Qt::NoBrush) : QBrush(color()));
    painter.drawEllipse(disc);

    const auto point = [&](qreal x, qreal y) {
        return QPointF(square.x() + x * square.width(), square.y() + y * square.height());
    };
    QPainterPath mark;
    if (m_kind == Fine) {
        mark.moveTo(point(0.30, 0.52));
        mark.lineTo(point(0.45, 0.67));
        mark.lineTo(point(0.71, 0.36));
    } else if (m_kind == Attention) {
        mark.moveTo(point(0.5, 0.28));
        mark.lineTo(point(0.5, 0.54));
        mark.moveTo(point(0.5, 0.70));
        mark.lineTo(point(0.5, 0.71));
    }
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(palette().color(QPalette::Window), line * 1.1, Qt::SolidLine, Qt::RoundCap,
                        Qt::RoundJoin));
    painter.drawPath(mark);
}

void Badge::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRect square = QStyle::alignedRect(layoutDirection(), Qt::AlignLeading | Qt::AlignVCenter,
                                             {signSize(), signSize()}, rect());
    paintSign(painter, square);
    painter.setPen(color());
    const QRect words = QStyle::alignedRect(layoutDirection(), Qt::AlignTrailing | Qt::AlignVCenter,
                                            {width() - signSize() * 4 / 3, height()}, rect());
    painter.drawText(
        words, int(QStyle::visualAlignment(layoutDirection(), Qt::AlignLeading) | Qt::AlignVCenter),
        m_text);
}

} // namespace platform
