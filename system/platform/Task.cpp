#include "system/platform/Task.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

namespace platform {

namespace {

constexpr qsizetype largestOutput = qsizetype{64} * 1024 * 1024; // bytes; 250,000 long paths

QString &toolFolder()
{
    static QString folder = QDir(QCoreApplication::applicationDirPath())
                                .absoluteFilePath(QStringLiteral("../libexec/tarnwell"));
    return folder;
}

bool isNewline(QChar character)
{
    switch (character.unicode()) {
    case u'\n':
    case u'\v':
    case u'\f':
    case u'\r':
    case 0x0085: // next line
    case 0x2028: // line separator
    case 0x2029: // paragraph separator
        return true;
    default:
        return false;
    }
}

} // namespace

void Task::setToolFolder(const QString &folder)
{
    toolFolder() = folder;
}

bool Task::run()
{
    m_output.clear();
    m_terminationStatus = -1;
    QProcess process;
    process.setProgram(QDir(toolFolder()).filePath(QFileInfo(m_launchPath).fileName()));
    process.setArguments(m_arguments);
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QIODevice::ReadOnly);
    if (!process.waitForStarted(-1)) {
        return false;
    }
    while (m_output.size() <= largestOutput && process.waitForReadyRead(-1)) {
        m_output += process.readAllStandardOutput();
    }
    const bool isTooLong = m_output.size() > largestOutput;
    if (isTooLong) {
        process.kill();
    }
    process.waitForFinished(-1);
    if (!isTooLong && process.exitStatus() == QProcess::NormalExit) {
        m_terminationStatus = process.exitCode();
    }
    return true;
}

QStringList Task::outputLines(const QString &launchPath, const QStringList &arguments)
{
    Task task;
    task.setLaunchPath(launchPath);
    task.setArguments(arguments);
    if (!task.run() || task.terminationStatus() != 0) {
        return {};
    }
    return linesOfText(QString::fromUtf8(task.output()));
}

QStringList linesOfText(const QString &text)
{
    QStringList lines;
    qsizetype start = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (isNewline(text[i])) {
            lines.append(text.mid(start, i - start));
            start = i + 1;
        }
    }
    lines.append(text.mid(start));
    return lines;
}

} // namespace platform
