#include "system/Discovery.h"

#include "model/App.h"
#include "system/platform/Task.h"

using platform::Bundle;
using platform::Task;

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
    const auto bundle = Bundle::bundleWithPath(path);
    const QString name =
        bundle ? bundle->infoDictionary().text(QStringLiteral("CFBundleName")) : QString();
    if (name.isNull()) {
        return nullptr;
    }
    auto app = std::make_shared<App>(name, path, bundle);
    bundle->discardInfoDictionary(); // of thousands of applications few are ever selected
    return app;
}
