#pragma once

#include "system/platform/PropertyList.h"

#include <QString>

#include <memory>

namespace platform {

/// Stands for NSBundle: a folder with an information dictionary, such as an application.
///
/// The dictionary is the property list, XML or binary, at Contents/Info.plist,
/// Resources/Info.plist or Info.plist, the first that is there. It is read when it is first asked
/// for, and kept until it is discarded.
class Bundle
{
public:
    /// The bundle at the folder `path`; none when that is empty. The disk is looked at when the
    /// dictionary is asked for, which is empty where there is no bundle.
    static std::shared_ptr<Bundle> bundleWithPath(const QString &path);

    /// Empty when there is no readable dictionary.
    const PropertyList &infoDictionary() const;

    /// Gives the dictionary's memory back. It is read again when it is asked for again.
    void discardInfoDictionary();

    /// The text under "CFBundleIdentifier", or null.
    QString bundleIdentifier() const
    {
        return infoDictionary().text(QStringLiteral("CFBundleIdentifier"));
    }

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
    mutable PropertyList m_infoDictionary;
    mutable QString m_contentsPath;
};

} // namespace platform
