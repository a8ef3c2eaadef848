#include "ui/platform/DiskStatus.h"

#include "system/platform/Task.h"
#include "ui/platform/TextMarks.h"

#include <QLocale>

namespace platform {

DiskStatus::DiskStatus(QObject *parent)
    : QObject(parent)
    , m_volume(VolumeInformation::current())
    , m_missingTool(Task::missingTool())
{}

QString DiskStatus::problem() const
{
    switch (m_volume.state) {
    case VolumeInformation::Missing:
        return tr("There is no disk at %1. Is it connected and mounted?")
            .arg(singleLine(m_volume.hostFolder));
    case VolumeInformation::Unreadable:
        return tr("The disk at %1 cannot be read: %2.")
            .arg(singleLine(m_volume.hostFolder), m_volume.unreadableReason);
    case VolumeInformation::NoLibrary:
        return missingLibraryText();
    case VolumeInformation::Usable:
        break;
    }
    return m_missingTool.isNull()
               ? QString()
               : tr("A part of this program is missing: %1. Please install it again.")
                     .arg(singleLine(m_missingTool));
}

QString DiskStatus::placeOf(const QString &text) const
{
    const QString whole =
        tr("%1 on %2, library of %3").arg(text, diskName(), singleLine(m_volume.userName));
    return m_volume.isReadOnly
               ? tr("%1. The disk is read-only: nothing can be backed up or restored.").arg(whole)
               : whole;
}

QString DiskStatus::diskName() const
{
    return m_volume.name.isNull() ? tr("this computer") : singleLine(m_volume.name);
}

QString DiskStatus::missingLibraryText() const
{
    const QString missing =
        tr("There is no library of %1 on %2").arg(singleLine(m_volume.userName), diskName());
    if (!m_volume.libraryOwners.isEmpty()) {
        return tr("%1. The users who have one: %2.")
            .arg(missing, singleLine(QLocale().createSeparatedList(m_volume.libraryOwners)));
    }
    if (m_volume.name.isNull()) {
        return tr("%1. To open a Mac's disk, run tarnwell-open.").arg(missing);
    }
    return tr("%1, nor of anyone else. Is it a Mac's disk?").arg(missing);
}

} // namespace platform
