// Measures the reader of property lists alone: reads each file of the folders given eleven times,
// and prints the median of the milliseconds that each took, the slowest file last.

#include "system/platform/PropertyList.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>

namespace {

double milliseconds(const QByteArray &bytes)
{
    static constexpr std::array<std::string_view, 2> keys = {"CFBundleName", "CFBundleIdentifier"};
    std::array<qint64, 11> nanoseconds = {};
    for (qint64 &time : nanoseconds) {
        QElapsedTimer elapsed;
        elapsed.start();
        platform::PropertyList(bytes, keys).text(keys[0]);
        time = elapsed.nsecsElapsed();
    }
    std::sort(nanoseconds.begin(), nanoseconds.end());
    return double(nanoseconds[nanoseconds.size() / 2]) / 1e6;
}

} // namespace

int main(int argc, char *argv[])
{
    std::multimap<double, QString> times;
    for (int i = 1; i < argc; ++i) {
        QDirIterator files(QString::fromLocal8Bit(argv[i]), QDir::Files);
        while (files.hasNext()) {
            QFile file(files.next());
            if (!file.open(QIODevice::ReadOnly)) {
                return 1;
            }
            times.emplace(milliseconds(file.readAll()), files.fileName());
        }
    }
    for (const auto &[time, name] : times) {
        std::printf("%.2f %s\n", time, qPrintable(name));
    }
    return 0;
}
