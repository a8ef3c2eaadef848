#pragma once

#include "system/platform/VolumeInformation.h"

#include <QObject>

namespace platform {

/// The current volume in a user's words, as it was when the object was made.
class DiskStatus : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString problem READ problem CONSTANT)

public:
    explicit DiskStatus(QObject *parent = nullptr);

    /// Why nothing can be backed up or restored here at all, and what to do; null when it can.
    QString problem() const;

    /// Where something is: "17 applications" becomes "17 applications on mac, library of anna".
    QString placeOf(const QString &text) const;

private:
    QString diskName() const;
    QString missingLibraryText() const;

    VolumeInformation m_volume;
    QString m_missingTool;
};

} // namespace platform
