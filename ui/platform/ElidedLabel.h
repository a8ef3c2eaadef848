#pragma once

#include <QLabel>

namespace platform {

/// A label for one line of text that may be too long for it, such as a path: elided in the
/// middle, whole in the tool tip, and copied whole. With the keyboard focus it is selected, so
/// that the standard shortcut copies it.
class ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget *parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    bool isElided() const;
};

} // namespace platform
