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
    if (path.isEmpty() || !FileManager::defaultManager().isFolder(path)) {
        return nullptr;
    }
    return std::shared_ptr<Bundle>(new Bundle(path));
}

void Bundle::load() const
{
    m_loaded = true;
    FileManager &fileManager = FileManager::defaultManager();
    for (const char *folder : {"/Contents", "/Resources", ""}) {
        const QString contentsPath = m_path + QLatin1String(folder);
        const QString infoPath = contentsPath + QStringLiteral("/Info.plist");
        if (!fileManager.fileExistsAtPath(infoPath)) {
            continue;
        }
        m_contentsPath = contentsPath;
        const auto bytes = fileManager.contentsAtPath(infoPath, largestInfoFile);
        m_infoDictionary = bytes ? propertyListDictionary(*bytes) : QVariantMap();
        return;
    }
}

const QVariantMap &Bundle::infoDictionary() const
{
    if (!m_loaded) {
        load();
    }
    return m_infoDictionary;
}

QString Bundle::infoText(const QString &key) const
{
    const QVariant value = infoDictionary().value(key);
    return value.typeId() == QMetaType::QString ? value.toString() : QString();
}

QString Bundle::executablePath() const
{
    const QString name = plainName(infoText(QStringLiteral("CFBundleExecutable")));
    return name.isNull() ? QString() : m_contentsPath + QStringLiteral("/MacOS/") + name;
}

QString Bundle::iconPath() const
{
    QString name = plainName(infoText(QStringLiteral("CFBundleIconFile")));
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
