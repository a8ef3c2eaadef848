#include "system/platform/Task.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

namespace platform {

namespace {

constexpr qsizetype largestOutput = qsizetype{256} * 1024 * 1024; // bytes; a million long paths

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
    QProcess process;
    process.setProgram(QDir(toolFolder()).filePath(QFileInfo(m_launchPath).fileName()));
    process.setArguments(m_arguments);
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QIODevice::ReadOnly);
    if (!process.waitForStarted(-1)) {
        return false;
    }
    m_output.clear();
    while (process.waitForReadyRead(-1)) {
        m_output += process.readAllStandardOutput();
        if (m_output.size() > largestOutput) {
            process.kill();
            break;
        }
    }
    process.waitForFinished(-1);
    const bool exited = process.exitStatus() == QProcess::NormalExit;
    m_terminationStatus = exited ? process.exitCode() : -1;
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
