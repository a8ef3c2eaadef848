#include "system/platform/Task.h"

#include "system/platform/PathEncoding.h"
#include "system/platform/files/FileDescriptor.h"
#include "system/platform/files/Progress.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace platform {

namespace {

constexpr int reportInterval = 1; // milliseconds; assistive technology asks one thing at a time
constexpr qsizetype largestOutput = qsizetype{64} * 1024 * 1024; // bytes; 250,000 long paths

QString &toolFolder()
{
    static QString folder = QDir(QCoreApplication::applicationDirPath())
                                .absoluteFilePath(QStringLiteral(TARNWELL_TOOLS_FROM_BIN));
    return folder;
}

QString toolAt(const QString &launchPath)
{
    return QDir(toolFolder()).filePath(QFileInfo(launchPath).fileName());
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

// Waits until there is something to read, and lets whoever watches the work have a turn meanwhile.
void waitFor(int pipe)
{
    pollfd input = {pipe, POLLIN, 0};
    while (Work::isObserved() && !Work::isGivenUp()) {
        const int ready = ::poll(&input, 1, reportInterval);
        if (ready > 0 || (ready < 0 && errno != EINTR)) {
            return;
        }
        Work::wait();
    }
}

/// Reads a pipe until nobody can write to it any more; false when that was too much or failed.
bool readToEnd(int pipe, QByteArray &bytes)
{
    std::array<char, 64UL * 1024> buffer; // bytes; as much as a pipe holds
    while (bytes.size() <= largestOutput) {
        waitFor(pipe);
        if (Work::isGivenUp()) {
            return false;
        }
        const ssize_t length = ::read(pipe, buffer.data(), buffer.size());
        if (length == 0) {
            return true;
        }
        if (length < 0 && errno != EINTR) {
            return false;
        }
        bytes.append(buffer.data(), std::max<ssize_t>(length, 0));
    }
    return false;
}

} // namespace

void Task::setToolFolder(const QString &folder)
{
    toolFolder() = folder;
}

QString Task::missingTool()
{
    for (const char *const launchPath : {"/usr/bin/mdfind", "/bin/ps"}) {
        const QString tool = toolAt(QString::fromLatin1(launchPath));
        if (!QFileInfo(tool).isFile() || !QFileInfo(tool).isExecutable()) {
            return QDir::cleanPath(tool);
        }
    }
    return {};
}

bool Task::run()
{
    const Work work(Progress::Activity::Listing);
    m_output.clear();
    m_terminationStatus = -1;
    // A pipe of our own, read to its end: what QProcess reads it gives up when the tool has exited,
    // with what may still be on the way.
    std::array<int, 2> ends = {-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        return false;
    }
    const FileDescriptor output(ends[0]);
    FileDescriptor input(ends[1]);

    QProcess process;
    process.setProgram(toolAt(m_launchPath));
    process.setArguments(m_arguments);
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setChildProcessModifier([&input] { ::dup2(input.get(), STDOUT_FILENO); });
    process.start(QIODevice::ReadOnly);
    if (!process.waitForStarted(-1)) {
        return false;
    }
    input.reset();
    const bool isWhole = readToEnd(output.get(), m_output);
    if (!isWhole) {
        process.kill();
    }
    while (process.state() != QProcess::NotRunning && !process.waitForFinished(reportInterval)) {
        Work::wait();
    }
    if (isWhole && process.exitStatus() == QProcess::NormalExit) {
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
    const QByteArray &output = task.output();
    return linesOfText(pathFromBytes({output.constData(), std::size_t(output.size())}));
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
