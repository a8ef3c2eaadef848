#include "system/platform/Bundle.h"

#include "system/platform/FileManager.h"

namespace platform {

namespace {

constexpr qint64 largestInfoFile = 512LL * 1024; // bytes; no real one comes near it

constexpr std::array<std::string_view, 6> infoKeys = {
    "CFBundleName",    "CFBundleIdentifier", "CFBundleShortVersionString",
    "CFBundleVersion", "CFBundleExecutable", "CFBundleIconFile"};

/// A file's name as a dictionary gives it, or null when it would lead to another folder.
QString plainName(const QString &name)
{
    const bool leadsElsewhere = name.contains(u'/') || name == u"." || name == u"..";
    return name.isEmpty() || leadsElsewhere ? QString() : name;
}

} // namespace

// The last two are of an application made for another kind of device: what is seen of it wraps the
// real one.
const std::array<Bundle::Layout, 5> Bundle::layouts = {
    {{"/Contents", "/MacOS/", "/Resources/"},
     {"/Resources", "/MacOS/", "/"},
     {"", "/MacOS/", "/Resources/"},
     {"/WrappedBundle/Contents", "/MacOS/", "/Resources/"},
     {"/WrappedBundle", "/", "/"}}};

std::shared_ptr<Bundle> Bundle::bundleWithPath(const QString &path)
{
    return path.isEmpty() ? nullptr : std::shared_ptr<Bundle>(new Bundle(path));
}

void Bundle::load() const
{
    m_loaded = true;
    const FileManager &fileManager = FileManager::defaultManager();
    for (const Layout &layout : layouts) {
        m_layout = &layout;
        const QString infoPath = contentsPath() + QStringLiteral("/Info.plist");
        if (const auto bytes = fileManager.contentsAtPath(infoPath, largestInfoFile)) {
            m_infoDictionary = PropertyList(*bytes, infoKeys);
            return;
        }
        if (fileManager.fileExistsAtPath(infoPath)) {
            return;
        }
    }
}

const PropertyList &Bundle::infoDictionary() const
{
    if (!m_loaded) {
        load();
    }
    return m_infoDictionary;
}

QString Bundle::contentsPath() const
{
    return m_path + QLatin1String(m_layout->contents);
}

QString Bundle::executablePath() const
{
    const QString name = plainName(infoDictionary().text("CFBundleExecutable"));
    return name.isNull() ? QString() : contentsPath() + QLatin1String(m_layout->executables) + name;
}

QStringList Bundle::iconPaths() const
{
    const QString name = plainName(infoDictionary().text("CFBundleIconFile"));
    if (name.isNull()) {
        return {};
    }
    const QString path = contentsPath() + QLatin1String(m_layout->resources) + name;
    const auto hasExtension = [&](const char *extension) {
        return name.endsWith(QLatin1String(extension), Qt::CaseInsensitive);
    };
    if (hasExtension(".icns") || hasExtension(".png")) {
        return {path};
    }
    return {path + QStringLiteral(".icns"), path + QStringLiteral(".png"), path};
}

} // namespace platform
