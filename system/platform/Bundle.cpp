#include "system/platform/Bundle.h"

#include "system/platform/FileManager.h"
#include "system/platform/PropertyList.h"

namespace platform {

namespace {

constexpr qint64 largestInfoFile = 4LL * 1024 * 1024; // bytes; no real one comes near it

/// A file's name as a dictionary gives it, or null when it would lead to another folder.
QString plainName(const QString &name)
{
    const bool leadsElsewhere = name.contains(u'/') || name == u"." || name == u"..";
    return name.isEmpty() || leadsElsewhere ? QString() : name;
}

} // namespace

std::shared_ptr<Bundle> Bundle::bundleWithPath(const QString &path)
{
    return path.isEmpty() ? nullptr : std::shared_ptr<Bundle>(new Bundle(path));
}

void Bundle::load() const
{
    m_loaded = true;
    const FileManager &fileManager = FileManager::defaultManager();
    for (const char *folder : {"/Contents", "/Resources", ""}) {
        m_contentsPath = m_path + QLatin1String(folder);
        const QString infoPath = m_contentsPath + QStringLiteral("/Info.plist");
        if (const auto bytes = fileManager.contentsAtPath(infoPath, largestInfoFile)) {
            m_infoDictionary = PropertyList(*bytes);
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

void Bundle::discardInfoDictionary()
{
    m_loaded = false;
    m_infoDictionary = PropertyList();
    m_contentsPath.clear();
}

QString Bundle::executablePath() const
{
    const QString name = plainName(infoDictionary().text(QStringLiteral("CFBundleExecutable")));
    return name.isNull() ? QString() : m_contentsPath + QStringLiteral("/MacOS/") + name;
}

QString Bundle::iconPath() const
{
    QString name = plainName(infoDictionary().text(QStringLiteral("CFBundleIconFile")));
    if (name.isNull()) {
        return {};
    }
    if (!name.endsWith(QLatin1String(".icns"))) {
        name += QLatin1String(".icns");
    }
    const bool insideResources = m_contentsPath.endsWith(QLatin1String("/Resources"));
    return m_contentsPath +
           (insideResources ? QStringLiteral("/") : QStringLiteral("/Resources/")) + name;
}

} // namespace platform
