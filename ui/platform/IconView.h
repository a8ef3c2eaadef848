#pragma once

#include <QIcon>
#include <QWidget>

namespace platform {

/// Shows an icon as large as the widget, sharp at every scale; nothing while it is null.
class IconView : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(QIcon icon READ icon WRITE setIcon)

public:
    using QWidget::QWidget;

    const QIcon &icon() const { return m_icon; }
    void setIcon(const QIcon &icon);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QIcon m_icon;
};

} // namespace platform
