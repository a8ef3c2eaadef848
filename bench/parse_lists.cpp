// The peer of discovery: opens and parses, with the library alone, the property lists whose paths
// stand in a file, one per line.

#include <plist/plist.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

int main(int argc, char *argv[])
{
    std::ifstream paths(argc > 1 ? argv[1] : "");
    int parsed = 0;
    std::vector<char> bytes;
    for (std::string path; std::getline(paths, path);) {
        const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status = {};
        if (file < 0 || ::fstat(file, &status) != 0) {
            return 1;
        }
        bytes.resize(static_cast<std::size_t>(status.st_size));
        const ssize_t length = ::read(file, bytes.data(), bytes.size());
        ::close(file);
        plist_t list = nullptr;
        plist_from_memory(bytes.data(), static_cast<std::uint32_t>(length), &list);
        parsed += list != nullptr ? 1 : 0;
        plist_free(list);
    }
    std::printf("%d property lists\n", parsed);
    return 0;
}
