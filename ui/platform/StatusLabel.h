#pragma once

#include "ui/platform/ElidedLabel.h"

#include <QStringList>

namespace platform {

class ArrayController;
class DiskStatus;

/// Tells at the foot of a window how many records there are, and on which disk. Before the records
/// have been arranged it says `loadingText`; where the disk cannot be worked on, nothing; while
/// long work is under way, how far that is.
///
/// The layout declares `countTexts`: of one record, of "%1" records, and of "%1" that a filter has
/// left of "%2".
class StatusLabel : public ElidedLabel
{
    Q_OBJECT
    Q_PROPERTY(QString loadingText MEMBER m_loadingText)
    Q_PROPERTY(QStringList countTexts MEMBER m_countTexts)

public:
    using ElidedLabel::ElidedLabel;

    /// Counts the records of `controller`. Both outlive the label.
    void setSources(const ArrayController &controller, const DiskStatus &disk);

public slots:
    void showCount();

private:
    QString countText() const;

    QString m_loadingText;
    QStringList m_countTexts;
    const ArrayController *m_controller = nullptr;
    const DiskStatus *m_disk = nullptr;
    bool m_isArranged = false;
};

} // namespace platform
