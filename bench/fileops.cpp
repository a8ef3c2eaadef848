// The file service as a program, for measuring it beside cp, rm and du.

#include "system/platform/files/FileService.h"
#include "system/platform/files/Progress.h"
#include "system/platform/files/StandardStreams.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>

namespace {

constexpr int exitUsage = 2;

/// Takes what is reported and does nothing with it.
class IdleObserver : public platform::ProgressObserver
{
public:
    void workProgressed(const platform::Progress &) override {}
};

std::string absolutePath(const char *argument)
{
    if (argument[0] == '/') {
        return argument;
    }
    char *folder = ::getcwd(nullptr, 0);
    std::string path = folder != nullptr ? folder : "";
    std::free(folder);
    return path + '/' + argument;
}

int fail(const std::string &error)
{
    std::printf("%s\n", error.c_str());
    return EXIT_FAILURE;
}

int report(const std::optional<platform::FileError> &error)
{
    return error ? fail(error->description()) : EXIT_SUCCESS;
}

int printSize(const platform::FileService &files, const std::string &path)
{
    if (!files.exists(path)) {
        return fail("“" + path + "” does not exist.");
    }
    std::printf("%ju\n", static_cast<std::uintmax_t>(files.totalSize(path)));
    return EXIT_SUCCESS;
}

// As ISO 8601 has it, in UTC and with nanoseconds.
int printDate(const platform::FileService &files, const std::string &path)
{
    const std::optional<timespec> time = files.modificationDate(path);
    tm date = {};
    if (!time || ::gmtime_r(&time->tv_sec, &date) == nullptr) {
        return fail("“" + path + "” does not exist.");
    }
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &date);
    std::printf("%s.%09ldZ\n", text, time->tv_nsec);
    return EXIT_SUCCESS;
}

int printUsage()
{
    std::fputs("usage: fileops copy SOURCE DESTINATION | observe SOURCE DESTINATION | remove PATH |"
               " size PATH | date PATH\n"
               "observe is copy with its progress reported to nobody.\n",
               stderr);
    return exitUsage;
}

} // namespace

int main(int argc, char **argv)
{
    platform::openStandardStreams();
    if (argc < 3) {
        return printUsage();
    }
    const std::string_view command = argv[1];
    const bool isObserved = command == "observe";
    const bool isCopy = command == "copy" || isObserved;
    if (argc != (isCopy ? 4 : 3)) {
        return printUsage();
    }
    const platform::FileService files(platform::Volume::current());
    const std::string path = absolutePath(argv[2]);
    if (isCopy) {
        IdleObserver observer;
        platform::Work::setObserver(isObserved ? &observer : nullptr);
        return report(files.copy(path, absolutePath(argv[3])));
    }
    if (command == "remove") {
        return report(files.remove(path));
    }
    if (command == "size") {
        return printSize(files, path);
    }
    return command == "date" ? printDate(files, path) : printUsage();
}
