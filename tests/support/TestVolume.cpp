#include "tests/support/TestVolume.h"

#include "system/platform/Task.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <filesystem>

TestVolume::TestVolume()
{
    QDir(m_folder.path()).mkdir(QStringLiteral("volume"));
    qputenv("TARNWELL_VOLUME", host(QString()).toUtf8());
    qputenv("TARNWELL_USER", "anna");
}

QString TestVolume::host(const QString &path) const
{
    return m_folder.path() + QStringLiteral("/volume") + path;
}

void TestVolume::write(const QString &path, const QByteArray &bytes) const
{
    QDir().mkpath(QFileInfo(host(path)).path());
    QFile file(host(path));
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        qFatal("Cannot write %s", qPrintable(file.fileName()));
    }
}

QByteArray TestVolume::read(const QString &path) const
{
    QFile file(host(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool TestVolume::exists(const QString &path) const
{
    return QFileInfo::exists(host(path));
}

void TestVolume::setDate(const QString &path, const QString &seconds) const
{
    if (QProcess::execute("touch", {"-h", "-d", '@' + seconds, host(path)}) != 0) {
        qFatal("Cannot set the date of %s", qPrintable(path));
    }
}

void TestVolume::writeInfo(const QString &folder, const QMap<QString, QString> &info) const
{
    QString dictionary;
    for (auto entry = info.begin(); entry != info.end(); ++entry) {
        dictionary += QStringLiteral("<key>%1</key><string>%2</string>")
                          .arg(entry.key(), entry.value().toHtmlEscaped());
    }
    write(folder + QStringLiteral("/Info.plist"),
          "<plist><dict>" + dictionary.toUtf8() + "</dict></plist>");
}

void TestVolume::writeBundle(const QString &path, const QMap<QString, QString> &info) const
{
    writeInfo(path + QStringLiteral("/Contents"), info);
}

void TestVolume::clear() const
{
    // What is in it, not the folder itself: that one is held open.
    for (const auto &item : std::filesystem::directory_iterator(host({}).toStdString())) {
        std::filesystem::remove_all(item);
    }
}

void TestVolume::writeProgram(const QString &path, const QByteArray &script) const
{
    write(path, "#!/bin/sh\n" + script);
    QFile::setPermissions(host(path), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void TestVolume::installTool(const QString &name, const QByteArray &script) const
{
    writeProgram("/.tools/" + name, script);
    platform::Task::setToolFolder(host("/.tools"));
}
