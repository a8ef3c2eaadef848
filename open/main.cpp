// Finds the disk and the user to work on, asks where there is a choice, and becomes the program
// proper, which is told by its environment.

#include "open/DiskChooser.h"
#include "system/platform/MacDisk.h"
#include "system/platform/PathEncoding.h"

#include <QApplication>
#include <QFileInfo>
#include <QIcon>
#include <QLocale>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <unistd.h>

using platform::bytesFromPath;
using platform::MacDisk;

namespace {

constexpr int exitUsage = 2;

/// What there is to choose from, or the choice itself when there is no other.
struct Search
{
    QList<MacDisk> disks;
    QString problem;
    std::optional<MacDisk::User> user; ///< on the first disk
};

Search searchMounted()
{
    Search search{MacDisk::mounted(), {}, {}};
    if (search.disks.size() == 1 && search.disks[0].users().size() == 1) {
        search.user = search.disks[0].users().first();
    }
    return search;
}

Search searchFolder(const QString &folder, const QString &userName)
{
    Search search;
    const auto disk = MacDisk::at(folder, &search.problem);
    if (!disk) {
        search.disks = MacDisk::mounted();
        return search;
    }
    search.disks = {*disk};
    if (userName.isEmpty()) {
        if (disk->users().size() <= 1) {
            search.user = disk->users().value(0);
        }
        return search;
    }
    search.user = disk->user(userName);
    if (!search.user) {
        QStringList names;
        for (const MacDisk::User &user : disk->users()) {
            names.append(u'“' + user.name + u'”');
        }
        search.problem =
            QStringLiteral("No user “%1” has a library on “%2”. Users who have: %3.")
                .arg(userName, disk->name(),
                     names.isEmpty() ? QStringLiteral("none") : names.join(QStringLiteral(", ")));
    }
    return search;
}

/// Becomes the program proper; returns only on failure.
int openDisk(const QString &path, const QString &user)
{
    const QString folder =
        QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget()).path();
    const std::string program = bytesFromPath(folder + QStringLiteral("/tarnwell"));
    ::setenv("TARNWELL_VOLUME", bytesFromPath(path).c_str(), 1);
    ::setenv("TARNWELL_USER", bytesFromPath(user).c_str(), 1);
    ::execl(program.c_str(), program.c_str(), nullptr);
    std::fprintf(stderr, "tarnwell-open: %s: %s\n", program.c_str(), std::strerror(errno));
    return EXIT_FAILURE;
}

int ask(int argc, char *argv[], const Search &search)
{
    QString path;
    QString user;
    {
        int programNameOnly = qMin(argc, 1);
        const QApplication application(programNameOnly, argv);
        QApplication::setApplicationName(QStringLiteral("tarnwell"));
        QApplication::setApplicationDisplayName(QStringLiteral("Tarnwell"));
        QApplication::setDesktopFileName(QStringLiteral("org.tarnwell.Tarnwell"));
        QApplication::setWindowIcon(QIcon(QStringLiteral(":/tarnwell.png")));
        QApplication::setLayoutDirection(QLocale().textDirection());
        DiskChooser chooser(search.disks, search.problem);
        if (chooser.exec() != QDialog::Accepted) {
            return EXIT_SUCCESS;
        }
        path = chooser.path();
        user = chooser.user();
    }
    return openDisk(path, user);
}

} // namespace

int main(int argc, char *argv[])
{
    const std::string_view first = argc > 1 ? argv[1] : "";
    if (first == "--version") {
        std::puts("tarnwell-open " TARNWELL_VERSION);
        return EXIT_SUCCESS;
    }
    if (first == "--help" || argc > 3) {
        std::fputs("usage: tarnwell-open [FOLDER [USER]]\n", argc > 3 ? stderr : stdout);
        return argc > 3 ? exitUsage : EXIT_SUCCESS;
    }
    const QString folder = argc > 1 ? platform::pathFromBytes(argv[1]) : QString();
    const QString userName = argc > 2 ? platform::pathFromBytes(argv[2]) : QString();
    const Search search = folder.isEmpty() ? searchMounted() : searchFolder(folder, userName);
    return search.user ? openDisk(search.disks[0].path(), search.user->name)
                       : ask(argc, argv, search);
}
