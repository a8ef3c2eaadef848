// Measures discovery alone: lists the applications of the current volume in order of their names,
// as the window does, and prints the number of records and the milliseconds that it took.

#include "bench/app_list.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QElapsedTimer elapsed;
    elapsed.start();
    platform::ArrayController controller;
    loadAppList(controller);
    std::printf("%lld records, %.1f ms\n", qlonglong(controller.arrangedObjects().size()),
                double(elapsed.nsecsElapsed()) / 1e6);
    return 0;
}
