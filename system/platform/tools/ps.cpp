// Stands for /bin/ps: lists every process of every user with its whole command line, one line
// each. It takes the one argument that the program gives, -A.

#include "system/platform/files/FileDescriptor.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

struct DirectoryCloser
{
    void operator()(DIR *directory) const { ::closedir(directory); }
};

std::vector<int> processes()
{
    std::vector<int> identifiers;
    const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir("/proc"));
    while (const dirent *entry = directory ? ::readdir(directory.get()) : nullptr) {
        int identifier = 0;
        const char *end = entry->d_name + std::strlen(entry->d_name);
        if (std::from_chars(entry->d_name, end, identifier).ptr == end) {
            identifiers.push_back(identifier);
        }
    }
    std::sort(identifiers.begin(), identifiers.end());
    return identifiers;
}

/// Empty when the process has ended meanwhile.
std::string contents(const std::string &path)
{
    std::string bytes;
    const platform::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> buffer = {};
    for (;;) {
        const ssize_t length = ::read(file.get(), buffer.data(), buffer.size());
        if (length <= 0) {
            return bytes;
        }
        bytes.append(buffer.data(), static_cast<std::size_t>(length));
    }
}

/// The arguments with a blank between them. A control character is shown as "?", so that each
/// process has one line.
std::string commandLine(int process)
{
    const std::string folder = "/proc/" + std::to_string(process);
    std::string command = contents(folder + "/cmdline");
    while (!command.empty() && command.back() == '\0') {
        command.pop_back();
    }
    if (command.empty()) { // a thread of the kernel, or a process that has ended
        command = contents(folder + "/comm");
        return command.empty() ? command
                               : std::string(1, '[').append(command, 0, command.find('\n')) + ']';
    }
    for (char &character : command) {
        const auto code = static_cast<unsigned char>(character);
        if (code == 0) {
            character = ' ';
        } else if (code < 0x20 || code == 0x7F) {
            character = '?';
        }
    }
    return command;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2 || std::strcmp(argv[1], "-A") != 0) {
        std::fputs("Usage: ps -A\n", stderr);
        return 2;
    }
    std::puts("    PID CMD");
    for (const int process : processes()) {
        const std::string command = commandLine(process);
        if (!command.empty()) { // else it has ended meanwhile
            std::printf("%7d %s\n", process, command.c_str());
        }
    }
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : 1;
}
