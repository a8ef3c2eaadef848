#include "tests/support/TestVolume.h"

#include "system/platform/Task.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

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

void TestVolume::setDate(const QString &path, qint64 milliseconds) const
{
    const qint64 fraction = (milliseconds % 1000 + 1000) % 1000;
    const timespec date = {(milliseconds - fraction) / 1000, fraction * 1'000'000};
    const timespec times[] = {date, date};
    ::utimensat(AT_FDCWD, QFile::encodeName(host(path)), times, 0);
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

void TestVolume::installTool(const QString &name, const QByteArray &script) const
{
    const QDir folder(m_folder.filePath(QStringLiteral("tools")));
    folder.mkpath(QStringLiteral("."));
    QFile tool(folder.filePath(name));
    tool.open(QIODevice::WriteOnly);
    tool.write("#!/bin/sh\n" + script);
    tool.close();
    tool.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    platform::Task::setToolFolder(folder.path());
}

QByteArray standardOutputOf(const std::function<void()> &work)
{
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_NONBLOCK) != 0) {
        qFatal("Cannot make a pipe");
    }
    std::fflush(stdout);
    const int original = ::dup(STDOUT_FILENO);
    ::dup2(ends[1], STDOUT_FILENO);
    work();
    QByteArray output(64 * 1024, 0);
    output.truncate(std::max(::read(ends[0], output.data(), std::size_t(output.size())), 0L));
    ::dup2(original, STDOUT_FILENO);
    for (const int descriptor : {original, ends[0], ends[1]}) {
        ::close(descriptor);
    }
    return output;
}
