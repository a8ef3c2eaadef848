#include "ui/platform/StatusLabel.h"

#include "ui/platform/ArrayController.h"
#include "ui/platform/DiskStatus.h"

#include <QLocale>

namespace platform {

void StatusLabel::setSources(const ArrayController &controller, const DiskStatus &disk)
{
    m_controller = &controller;
    m_disk = &disk;
    connect(&controller, &ArrayController::rearranged, this, [this] {
        m_isArranged = true;
        showCount();
    });
    showCount();
}

void StatusLabel::showCount()
{
    if (!m_disk->problem().isNull()) {
        clear();
    } else {
        setText(m_isArranged ? m_disk->placeOf(countText()) : m_loadingText);
    }
}

QString StatusLabel::countText() const
{
    const auto all = m_controller->content().size();
    const auto shown = m_controller->arrangedObjects().size();
    const QLocale locale;
    if (shown != all) {
        return m_countTexts.value(2).arg(locale.toString(shown), locale.toString(all));
    }
    return all == 1 ? m_countTexts.value(0) : m_countTexts.value(1).arg(locale.toString(all));
}

} // namespace platform
