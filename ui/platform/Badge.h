#pragma once

#include <QWidget>

namespace platform {

/// A state in one or two words behind a sign of its own shape and colour, so that it is told
/// apart at a glance, and without colour too.
class Badge : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(Kind kind READ kind WRITE setKind)
    Q_PROPERTY(QString text READ text WRITE setText)

public:
    enum Kind
    {
        Absent,    ///< an empty ring
        Attention, ///< a disc with an exclamation mark
        Fine,      ///< a disc with a tick
    };
    Q_ENUM(Kind)

    explicit Badge(QWidget *parent = nullptr);

    Kind kind() const { return m_kind; }
    void setKind(Kind kind);

    const QString &text() const { return m_text; }
    void setText(const QString &text);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QColor color() const;
    int signSize() const { return fontMetrics().height(); }
    void paintSign(QPainter &painter, const QRectF &square) const;

    Kind m_kind = Absent;
    QString m_text;
};

} // namespace platform
