#pragma once

#include <QCache>
#include <QIcon>
#include <QObject>
#include <QSize>
#include <QStringList>
#include <QTimer>

namespace platform {

/// Loads the icons of files while the event loop has nothing else to do and no work is under way, a
/// few at a time, so that a list of thousands is drawn and scrolled at once.
///
/// What was asked for and is not loaded in the next few milliseconds is forgotten: whoever draws
/// the icons is told, draws again, and asks for those that are still seen.
class IconLoader : public QObject
{
    Q_OBJECT

public:
    /// Loads icons to be shown at `size`.
    IconLoader(QSize size, QObject *parent);

    /// The icon of the file at `path`, one of the program's own; null while it is not loaded.
    QIcon icon(const QString &path);

signals:
    /// There may be icons where there were none: draw again, and ask for what is seen.
    void loaded();

private:
    void loadSome();

    QSize m_size;
    QCache<QString, QIcon> m_icons;
    QStringList m_wanted;
    QTimer m_idle;
};

} // namespace platform
