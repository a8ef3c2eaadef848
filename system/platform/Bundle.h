#pragma once

#include <QString>
#include <QVariantMap>

#include <memory>

namespace platform {

/// Stands for NSBundle: a folder with an information dictionary, such as an application.
///
/// The dictionary is the property list, XML or binary, at Contents/Info.plist,
/// Resources/Info.plist or Info.plist, the first that is there. It is read once, when it is first
/// asked for.
class Bundle
{
public:
    /// The bundle at the folder `path`; none when there is no folder.
    static std::shared_ptr<Bundle> bundleWithPath(const QString &path);

    /// Text keys to values of any kind; empty when there is no readable dictionary.
    const QVariantMap &infoDictionary() const;

    /// The text under "CFBundleIdentifier", or null.
    QString bundleIdentifier() const { return infoText(QStringLiteral("CFBundleIdentifier")); }

    /// The value under `key` when it is text, else null. An empty text is not null.
    QString infoText(const QString &key) const;

    /// The program's path of the main executable, "CFBundleExecutable" in the folder MacOS beside
    /// the dictionary; null when none is named.
    QString executablePath() const;

    /// The program's path of the icon file, "CFBundleIconFile" in the bundle's folder of
    /// resources; null when none is named.
    QString iconPath() const;

private:
    explicit Bundle(const QString &path) : m_path(path) {}

    void load() const;

    QString m_path;
    mutable bool m_loaded = false;
    mutable QVariantMap m_infoDictionary;
    mutable QString m_contentsPath;
};

} // namespace platform
