#pragma once

#include <QList>
#include <QString>

#include <optional>

namespace platform {

/// A folder of the host that looks like the root of a Mac's disk, as it looked when it was
/// examined.
class MacDisk
{
public:
    enum class Access
    {
        ReadAndWrite,
        ReadOnly, ///< the whole disk is
        Denied    ///< this process may not write
    };

    /// A user who has a library folder on the disk.
    struct User
    {
        QString name;
        Access access = Access::Denied; ///< to the library folder
    };

    /// Examines a folder. It looks like a Mac's disk when a user has a library in it, or when it
    /// holds applications and a library or system folder. Otherwise the result is nothing, and
    /// `problem` is a sentence about what is missing.
    static std::optional<MacDisk> at(const QString &folder, QString *problem = nullptr);

    /// The disks among the file systems that are mounted on the host, in the order of their paths.
    /// A disk in two volumes is one. Network file systems are not looked at: a server that does
    /// not answer would keep the program waiting.
    static QList<MacDisk> mounted();

    const QString &path() const { return m_path; }       ///< absolute, on the host
    const QList<User> &users() const { return m_users; } ///< in the order of their names
    QString name() const;                                ///< the last component of the path

    /// The user of this name, whatever its case and the form of its accents.
    std::optional<User> user(const QString &name) const;

    /// The bytes that the whole file system holds, used or not; nothing when the folder is only a
    /// part of one.
    std::optional<qint64> size() const;

private:
    QString m_path;
    QList<User> m_users;
};

} // namespace platform
