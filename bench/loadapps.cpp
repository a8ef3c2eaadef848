// Measures discovery alone: lists the applications of the current volume as the window does, and
// prints the number of records and the milliseconds that it took.

#include "model/App.h"
#include "system/Discovery.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>
#include <vector>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QElapsedTimer elapsed;
    elapsed.start();
    std::vector<std::shared_ptr<App>> apps;
    for (const QString &path : applicationPaths()) {
        if (auto app = appAtPath(path)) {
            apps.push_back(std::move(app));
        }
    }
    std::printf("%zu records, %.1f ms\n", apps.size(), double(elapsed.nsecsElapsed()) / 1e6);
    return 0;
}
