// Stands for /usr/bin/mdfind: prints the absolute path of every application bundle on the
// volume, one per line. It answers the one query that the program asks.
//
// Looked through are the volume's application folders, its system folders and its home folders.
// No bundle is looked into, no symbolic link is followed, and what cannot be read is passed over.
// Entries are taken in the order of their bytes, so that the output of one disk is always the same.

#include "system/platform/files/DirectoryReader.h"
#include "system/platform/files/Volume.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <pwd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

using platform::Volume;

constexpr std::string_view query = "kMDItemKind=Application";

/// Whether a name could not be told from two lines: it holds a line feed, vertical tab, form feed,
/// carriage return, or in UTF-8 a next line, line separator or paragraph separator.
bool breaksLine(std::string_view name)
{
    return name.find_first_of("\n\v\f\r") != std::string_view::npos ||
           name.find("\xC2\x85") != std::string_view::npos ||
           name.find("\xE2\x80\xA8") != std::string_view::npos ||
           name.find("\xE2\x80\xA9") != std::string_view::npos;
}

/// The paths of the folders directly inside the folder at `path`, sorted. Those of PATH_MAX bytes
/// and more are left out, and with them what a hostile disk nests without end.
std::vector<std::string> foldersIn(const Volume &volume, const std::string &path)
{
    std::vector<std::string> folders;
    const platform::FileDescriptor folder = volume.open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (!folder.isOpen()) {
        return folders;
    }
    platform::DirectoryReader reader;
    reader.start(folder.get());
    while (const platform::DirectoryReader::Entry *entry = reader.next()) {
        const bool mayBeFolder = entry->type == DT_DIR || entry->type == DT_UNKNOWN;
        std::string below = (path == "/" ? "" : path) + '/' + entry->name;
        if (mayBeFolder && !breaksLine(entry->name) && below.size() < PATH_MAX) {
            folders.push_back(std::move(below));
        }
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

bool isBundle(std::string_view path)
{
    constexpr std::string_view extension = ".app";
    return path.size() > extension.size() &&
           ::strncasecmp(path.data() + path.size() - extension.size(), extension.data(),
                         extension.size()) == 0;
}

/// The folders of the volume in which applications lie. On the host's own disk, one home is
/// looked through: the user's.
std::vector<std::string> searchedFolders(const Volume &volume)
{
    std::vector<std::string> searched;
    for (const std::string &folder : foldersIn(volume, "/")) {
        for (const char *name : {"/Applications", "/System", "/Library", "/Users"}) {
            if (::strcasecmp(folder.c_str(), name) == 0) {
                searched.push_back(folder);
            }
        }
    }
    const passwd *user = volume.isHost() ? ::getpwuid(::getuid()) : nullptr;
    if (user && std::string_view(user->pw_dir) != "/") {
        searched.emplace_back(user->pw_dir);
    }
    return searched;
}

void printBundles(const Volume &volume)
{
    std::vector<std::string> pending = searchedFolders(volume);
    std::reverse(pending.begin(), pending.end());
    while (!pending.empty()) {
        const std::string path = std::move(pending.back());
        pending.pop_back();
        if (isBundle(path)) {
            std::puts(path.c_str());
            continue;
        }
        const std::vector<std::string> folders = foldersIn(volume, path);
        pending.insert(pending.end(), folders.rbegin(), folders.rend());
    }
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2 || argv[1] != query) {
        std::fprintf(stderr, "Usage: mdfind %s\n", query.data());
        return 2;
    }
    const Volume &volume = Volume::current();
    if (!volume.open("/", O_PATH | O_DIRECTORY).isOpen()) {
        return 1;
    }
    printBundles(volume);
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : 1;
}
