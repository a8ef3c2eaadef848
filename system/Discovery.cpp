#include "system/Discovery.h"

#include "model/App.h"
#include "system/platform/Task.h"
#include "system/platform/files/Progress.h"

using platform::Bundle;
using platform::Task;
using platform::Work;

QStringList applicationPaths()
{
    QStringList paths = Task::outputLines(QStringLiteral("/usr/bin/mdfind"),
                                          {QStringLiteral("kMDItemKind=Application")});
    paths.removeIf([](const QString &path) {
        return path.contains(QLatin1String("/Library")) || path.contains(QLatin1String("/.Trash"));
    });
    return paths;
}

std::shared_ptr<App> appAtPath(const QString &path)
{
    if (Work::isGivenUp()) {
        return nullptr;
    }
    Work::advance(1, 0);
    const auto bundle = Bundle::bundleWithPath(path);
    const QString name = bundle ? bundle->infoDictionary().text("CFBundleName") : QString();
    if (name.isNull()) {
        return nullptr;
    }
    return std::make_shared<App>(name, path, bundle);
}
