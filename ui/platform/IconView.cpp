#include "ui/platform/IconView.h"

#include <QPainter>

namespace platform {

void IconView::setIcon(const QIcon &icon)
{
    m_icon = icon;
    update();
}

void IconView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    m_icon.paint(&painter, rect());
}

} // namespace platform
