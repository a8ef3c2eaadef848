#pragma once

#include "model/Path.h"
#include "system/platform/Bundle.h"

#include <QIcon>
#include <QObject>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

/// One installed application: what discovery knows of it, what its first selection adds (icon,
/// size, version), and its two locations, which live and die with it.
///
/// Setters store and notify, also when the value stays the same, and touch no disk.
class App : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(QString path READ path WRITE setPath NOTIFY pathChanged)
    Q_PROPERTY(
        std::shared_ptr<platform::Bundle> bundle READ bundle WRITE setBundle NOTIFY bundleChanged)
    Q_PROPERTY(QIcon appIcon READ appIcon WRITE setAppIcon NOTIFY appIconChanged)
    Q_PROPERTY(QString identifier READ identifier WRITE setIdentifier NOTIFY identifierChanged)
    Q_PROPERTY(QVariant size READ sizeVariant WRITE setSizeVariant NOTIFY sizeChanged)
    Q_PROPERTY(QString version READ version WRITE setVersion NOTIFY versionChanged)
    Q_PROPERTY(Path *prefs READ prefs CONSTANT)
    Q_PROPERTY(Path *data READ data CONSTANT)
    Q_PROPERTY(QString sizeMB READ sizeMB)

public:
    App(const QString &name, const QString &path, std::shared_ptr<platform::Bundle> bundle);

    /// The bundle's "CFBundleName".
    const QString &name() const { return m_name; }
    void setName(const QString &name);

    /// The bundle's absolute path, as discovery found it.
    const QString &path() const { return m_path; }
    void setPath(const QString &path);

    const std::shared_ptr<platform::Bundle> &bundle() const { return m_bundle; }
    void setBundle(const std::shared_ptr<platform::Bundle> &bundle);

    /// Null when unset.
    const QIcon &appIcon() const { return m_appIcon; }
    void setAppIcon(const QIcon &icon);

    /// The bundle's identifier; null when it has none.
    const QString &identifier() const { return m_identifier; }
    void setIdentifier(const QString &identifier);

    /// Megabytes of 1,000,000 bytes.
    std::optional<float> size() const { return m_size; }
    void setSize(std::optional<float> size);

    /// Null when unset.
    const QString &version() const { return m_version; }
    void setVersion(const QString &version);

    /// The preferences file.
    Path *prefs() { return &m_prefs; }

    /// The data folder.
    Path *data() { return &m_data; }

    /// The size as text in the user's locale, with at most one fractional digit, rounded half
    /// to even, and " MB"; empty while the size is unset.
    QString sizeMB() const;

    /// Establishes both locations afresh from the disk, and the first time the icon, the size
    /// and the version. Reads only; whatever cannot be read counts as absent.
    void loadDetails();

    /// Whether some process names the bundle's path in its command line. Runs the
    /// process-listing tool; a failure of it answers no.
    bool isAppRunning() const;

signals:
    void nameChanged();
    void pathChanged();
    void bundleChanged();
    void appIconChanged();
    void identifierChanged();
    void sizeChanged();
    void versionChanged();

private:
    QVariant sizeVariant() const { return m_size ? QVariant(*m_size) : QVariant(); }
    void setSizeVariant(const QVariant &size);

    QString m_name;
    QString m_path;
    std::shared_ptr<platform::Bundle> m_bundle;
    QIcon m_appIcon;
    QString m_identifier;
    std::optional<float> m_size;
    QString m_version;
    Path m_prefs;
    Path m_data;
};
