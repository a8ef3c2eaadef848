#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>

/// A location that can be backed up: the preferences file or the data folder of an application.
///
/// The backup lies at the same path with ".bak" appended. `found`, `backedUp` and `backupDate`
/// are what was last established, not live facts. Setters store and notify, also when the value
/// stays the same, and touch no disk.
class Path : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString path READ path WRITE setPath NOTIFY pathChanged)
    Q_PROPERTY(bool found READ found WRITE setFound NOTIFY foundChanged)
    Q_PROPERTY(bool backedUp READ backedUp WRITE setBackedUp NOTIFY backedUpChanged)
    Q_PROPERTY(QDateTime backupDate READ backupDate WRITE setBackupDate NOTIFY backupDateChanged)
    Q_PROPERTY(QString pathBak READ pathBak)

public:
    /// The live item's absolute path; null when unset.
    const QString &path() const { return m_path; }
    void setPath(const QString &path);

    bool found() const { return m_found; }
    void setFound(bool found);

    bool backedUp() const { return m_backedUp; }
    void setBackedUp(bool backedUp);

    /// The backup's modification date; invalid when unset.
    const QDateTime &backupDate() const { return m_backupDate; }
    void setBackupDate(const QDateTime &date);

    /// The backup's path; null when `path` is unset.
    QString pathBak() const;

    /// Copies the item at `path` to `pathBak`, removing first the backup that is known to be
    /// there. Answers whether the backup was made; the reason of a failed copy goes to standard
    /// output, in one line.
    bool backUp();

    /// Removes the item at `path` and puts a copy of the backup there. The backup stays, and no
    /// field changes. Answers whether that was done; the reason of a failed copy goes to
    /// standard output, in one line.
    bool restore();

signals:
    void pathChanged();
    void foundChanged();
    void backedUpChanged();
    void backupDateChanged();

private:
    QString m_path;
    bool m_found = false;
    bool m_backedUp = false;
    QDateTime m_backupDate;
};
