// Stands for /bin/ps: lists every process of every user with its whole command line, one line
// each. It takes the one argument that the program gives, -A.

#include "system/platform/files/DirectoryReader.h"
#include "system/platform/files/FileDescriptor.h"

#include <fcntl.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<int> processes()
{
    std::vector<int> identifiers;
    const platform::FileDescriptor folder(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    platform::DirectoryReader reader;
    reader.start(folder.get());
    while (const platform::DirectoryReader::Entry *entry = reader.next()) {
        int identifier = 0;
        const char *end = entry->name + std::strlen(entry->name);
        if (std::from_chars(entry->name, end, identifier).ptr == end) {
            identifiers.push_back(identifier);
        }
    }
    std::sort(identifiers.begin(), identifiers.end());
    return identifiers;
}

/// Empty when the process has ended meanwhile.
std::string contents(const std::string &path)
{
    std::ostringstream bytes;
    bytes << std::ifstream(path).rdbuf();
    return bytes.str();
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
