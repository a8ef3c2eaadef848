#include "model/Path.h"

#include "system/platform/FileManager.h"

#include <cstdio>

using platform::Error;
using platform::FileManager;
using platform::LocationLock;

namespace {

void print(const Error &error)
{
    const QByteArray line = error.localizedDescription.toUtf8() + '\n';
    std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    std::fflush(stdout);
}

bool lockOrPrintError(const QString &path, LocationLock &lock)
{
    Error error;
    const bool isLocked = FileManager::defaultManager().lockItemAtPath(path, lock, &error);
    if (!isLocked) {
        print(error);
    }
    return isLocked;
}

bool copyOrPrintError(const QString &source, const QString &destination)
{
    Error error;
    const bool isCopied = FileManager::defaultManager().copyItemAtPath(source, destination, &error);
    if (!isCopied) {
        print(error);
    }
    return isCopied;
}

} // namespace

void Path::setPath(const QString &path)
{
    m_path = path;
    emit pathChanged();
}

void Path::setFound(bool found)
{
    m_found = found;
    emit foundChanged();
}

void Path::setBackedUp(bool backedUp)
{
    m_backedUp = backedUp;
    emit backedUpChanged();
}

void Path::setBackupDate(const QDateTime &date)
{
    m_backupDate = date;
    emit backupDateChanged();
}

QString Path::pathBak() const
{
    return m_path.isNull() ? QString() : m_path + QStringLiteral(".bak");
}

bool Path::backUp()
{
    LocationLock lock; // from the removal to the end of the copy
    if (m_path.isNull() || !lockOrPrintError(m_path, lock)) {
        return false;
    }
    const FileManager &fileManager = FileManager::defaultManager();
    if (m_backedUp) {
        if (!fileManager.removeItemAtPath(pathBak(), nullptr)) {
            return false;
        }
        setBackedUp(false);
        setBackupDate({});
    }
    if (!copyOrPrintError(m_path, pathBak())) {
        return false;
    }
    setBackedUp(true);
    setBackupDate(fileManager.modificationDate(pathBak()));
    return true;
}

bool Path::restore()
{
    LocationLock lock;
    if (m_path.isNull() || !lockOrPrintError(m_path, lock)) {
        return false;
    }
    if (!FileManager::defaultManager().removeItemAtPath(m_path, nullptr)) {
        return false;
    }
    return copyOrPrintError(pathBak(), m_path);
}
