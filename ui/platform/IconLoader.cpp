#include "ui/platform/IconLoader.h"

#include "system/platform/Workspace.h"
#include "ui/platform/InputGate.h"

#include <QElapsedTimer>
#include <QGuiApplication>

namespace platform {

namespace {

constexpr int timeForLoading = 8; // milliseconds, half of what a screen leaves for a frame
constexpr int mostIcons = 1000;   // more than there are rows on any screen

/// The icon at one size only, and not tinted in a selected row.
QIcon atSize(const QIcon &icon, QSize size)
{
    const QPixmap pixmap = icon.pixmap(size, qGuiApp->devicePixelRatio());
    QIcon result(pixmap);
    result.addPixmap(pixmap, QIcon::Selected);
    return result;
}

} // namespace

IconLoader::IconLoader(QSize size, QObject *parent)
    : QObject(parent)
    , m_size(size)
    , m_icons(mostIcons)
{
    m_idle.setSingleShot(true);
    connect(&m_idle, &QTimer::timeout, this, &IconLoader::loadSome);
    connect(&InputGate::shared(), &InputGate::opened, this, &IconLoader::loaded);
}

QIcon IconLoader::icon(const QString &path)
{
    if (const QIcon *const icon = m_icons.object(path)) {
        return *icon;
    }
    m_wanted.append(path);
    m_idle.start(0);
    return {};
}

void IconLoader::loadSome()
{
    if (InputGate::shared().isWorkUnderWay()) {
        return m_wanted.clear();
    }
    QElapsedTimer loading;
    loading.start();
    for (const QString &path : std::exchange(m_wanted, {})) {
        const QIcon icon = Workspace::sharedWorkspace().iconForFile(path);
        m_icons.insert(path, new QIcon(atSize(icon, m_size)));
        if (loading.hasExpired(timeForLoading)) {
            break;
        }
    }
    emit loaded();
}

} // namespace platform
