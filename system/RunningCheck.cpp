#include "model/App.h"
#include "system/platform/Task.h"

#include <algorithm>

using platform::Task;

bool App::isAppRunning() const
{
    const QStringList processes =
        Task::outputLines(QStringLiteral("/bin/ps"), {QStringLiteral("-A")});
    return std::any_of(processes.begin(), processes.end(),
                       [this](const QString &process) { return process.contains(m_path); });
}
