#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QTemporaryDir>

/// A volume of its own for one test program, with the user "anna". It becomes the current volume,
/// so it is made before any service of the platform is used.
class TestVolume
{
public:
    TestVolume();

    /// The host's path of a path on the volume.
    QString host(const QString &path) const;

    /// Writes a file, and the folders that it needs, on the volume.
    void write(const QString &path, const QByteArray &bytes) const;
    QByteArray read(const QString &path) const;
    bool exists(const QString &path) const;

    /// Writes a shell script that can be run.
    void writeProgram(const QString &path, const QByteArray &script) const;

    /// Sets the dates of an item, in seconds since 1970.
    void setDate(const QString &path, const QString &seconds) const;

    /// Writes an information dictionary of texts into a folder, or an application bundle with one.
    void writeInfo(const QString &folder, const QMap<QString, QString> &info) const;
    void writeBundle(const QString &path, const QMap<QString, QString> &info) const;

    /// Empties the volume.
    void clear() const;

    /// Makes a tool of a shell script; all tools are looked up among those made so, up to clear().
    void installTool(const QString &name, const QByteArray &script) const;

private:
    QTemporaryDir m_folder;
};
