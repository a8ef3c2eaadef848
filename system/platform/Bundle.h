#pragma once

#include "system/platform/PropertyList.h"

#include <QString>
#include <QStringList>

#include <array>
#include <memory>

namespace platform {

/// Stands for NSBundle: a folder with an information dictionary, such as an application.
///
/// The dictionary is the property list, XML or binary, at Contents/Info.plist,
/// Resources/Info.plist or Info.plist, the first that is there, or of a bundle that wraps another
/// one at these places of the wrapped one, to which the link WrappedBundle leads. It is read when
/// it is first asked for, and of it are kept the texts that tell name, identifier, versions,
/// executable and icon.
class Bundle
{
public:
    /// The bundle at the folder `path`; none when that is empty. The disk is looked at when the
    /// dictionary is asked for, which is empty where there is no bundle.
    static std::shared_ptr<Bundle> bundleWithPath(const QString &path);

    /// Empty when there is no readable dictionary.
    const PropertyList &infoDictionary() const;

    /// The text under "CFBundleIdentifier", or null.
    QString bundleIdentifier() const { return infoDictionary().text("CFBundleIdentifier"); }

    /// The program's path of the main executable, "CFBundleExecutable" in the folder MacOS beside
    /// the dictionary; null when none is named.
    QString executablePath() const;

    /// The program's paths at which the icon file is looked for in turn, "CFBundleIconFile" in the
    /// bundle's folder of resources: the name may lack its extension. Empty when none is named.
    QStringList iconPaths() const;

private:
    /// A form of bundle: where the dictionary is, and where beside it executables and resources
    /// are.
    struct Layout
    {
        const char *contents;
        const char *executables;
        const char *resources;
    };
    static const std::array<Layout, 5> layouts;

    explicit Bundle(const QString &path) : m_path(path) {}

    void load() const;
    QString contentsPath() const;

    QString m_path;
    mutable bool m_loaded = false;
    mutable PropertyList m_infoDictionary;
    mutable const Layout *m_layout = layouts.data();
};

} // namespace platform
