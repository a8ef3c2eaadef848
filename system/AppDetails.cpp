#include "model/App.h"
#include "system/LocationCandidates.h"
#include "system/platform/FileManager.h"
#include "system/platform/Workspace.h"
#include "system/platform/files/LookupMemory.h"

#include <algorithm>

using platform::FileManager;
using platform::PropertyList;
using platform::Workspace;

namespace {

void reset(Path &location)
{
    location.setPath({});
    location.setFound(false);
    location.setBackedUp(false);
    location.setBackupDate({});
}

/// "2.1", or "2.1 (340)" where there is a build version that says more. Null when the bundle
/// gives no short version.
QString versionText(const PropertyList &info)
{
    const QString shortVersion = info.text("CFBundleShortVersionString");
    const QString buildVersion = info.text("CFBundleVersion");
    const bool saysMore = !buildVersion.trimmed().isEmpty() && buildVersion != shortVersion;
    return shortVersion.isNull() || !saysMore
               ? shortVersion
               : shortVersion + QStringLiteral(" (") + buildVersion + u')';
}

template <typename Test>
void findLocation(Path &location, const QStringList &candidates, Test isThere)
{
    const auto candidate = std::find_if(candidates.begin(), candidates.end(), isThere);
    if (candidate != candidates.end()) {
        location.setFound(true);
        location.setPath(*candidate);
    }
}

void findBackup(Path &location, const FileManager &fileManager)
{
    if (!location.found() || !fileManager.fileExistsAtPath(location.pathBak())) {
        return;
    }
    location.setBackedUp(true);
    location.setBackupDate(fileManager.modificationDate(location.pathBak()));
}

} // namespace

void App::loadDetails()
{
    reset(m_prefs);
    reset(m_data);

    const FileManager &fileManager = FileManager::defaultManager();
    if (m_appIcon.isNull()) {
        setAppIcon(Workspace::sharedWorkspace().iconForFile(m_path));
        setSize(fileManager.directorySize(m_path));
        const QString version = versionText(m_bundle->infoDictionary());
        if (!version.isNull()) {
            setVersion(version);
        }
    }

    const platform::LookupMemory memory; // of the folders that several candidates lie in
    const LocationCandidates candidates(m_name, m_identifier);
    findLocation(m_prefs, candidates.prefs(),
                 [&](const QString &path) { return fileManager.fileExistsAtPath(path); });
    findBackup(m_prefs, fileManager);
    findLocation(m_data, candidates.data(),
                 [&](const QString &path) { return fileManager.directoryHasContents(path); });
    findBackup(m_data, fileManager);
}
