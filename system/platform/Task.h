#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace platform {

/// Stands for NSTask with an NSPipe on its standard output: one run of a command-line tool.
///
/// The launch path is the tool's place on a Mac. What is started is the program of the same
/// name in this layer's folder of tools, which is installed beside the running program's folder.
/// Standard input, standard error, environment and working directory are inherited.
class Task
{
public:
    void setLaunchPath(const QString &path) { m_launchPath = path; }
    void setArguments(const QStringList &arguments) { m_arguments = arguments; }

    /// Starts the tool, collects everything it writes up to the end of file while it runs, and
    /// waits for its exit. A tool that writes more than 64 MiB, or whose output nobody wants any
    /// more (Work::isGivenUp), is killed. Answers no when it cannot be started.
    bool run();

    /// The tool's exit status; one other than 0 for a tool that was ended by a signal,
    /// or that wrote too much.
    int terminationStatus() const { return m_terminationStatus; }

    /// What the tool wrote to its standard output.
    const QByteArray &output() const { return m_output; }

    /// Runs a tool and splits its output into lines; the empty list when the tool cannot be
    /// started or exits with a status other than 0. The bytes become text as those of paths
    /// do (PathEncoding.h), so that a path comes back to the bytes that the tool printed.
    static QStringList outputLines(const QString &launchPath, const QStringList &arguments);

    /// Takes the tools from another folder than the installed one.
    static void setToolFolder(const QString &folder);

    /// The path on the host of a tool that is not installed; null when all are.
    static QString missingTool();

private:
    QString m_launchPath;
    QStringList m_arguments;
    QByteArray m_output;
    int m_terminationStatus = -1;
};

/// Splits a text at every newline character: line feed, vertical tab, form feed, carriage
/// return, next line, line separator and paragraph separator. Each ends a line of its own, so
/// adjacent ones and a final one give empty lines.
QStringList linesOfText(const QString &text);

} // namespace platform
