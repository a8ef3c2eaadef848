// Stands for /usr/bin/mdfind: prints the absolute path of every application bundle on the
// volume, one per line. It answers the one query that the program asks.
//
// Looked through is what a Mac's index knows: every top-level folder but those of the system's
// insides, and no hidden folder, none that is kept from the index, and no package, bundles
// included. Folders called Library are left out too, whose bundles nobody asks for. On the host's
// own disk it is only the folders that a Mac has, and the user's home.
//
// A Mac's disk may be two volumes, the second one at /System/Volumes/Data: what that one holds is
// seen at the root, and printed so.
//
// No symbolic link is followed, and what cannot be read is passed over. Entries are taken in the
// order of their bytes, so that the output of one disk is always the same.

#include "system/platform/files/DirectoryReader.h"
#include "system/platform/files/Volume.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <pwd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace {

using namespace std::string_view_literals;
using platform::Volume;

constexpr std::string_view query = "kMDItemKind=Application";

/// Whether a name could not be told from two lines: it holds a line feed, vertical tab, form feed,
/// carriage return, or in UTF-8 a next line, line separator or paragraph separator.
bool breaksLine(std::string_view name)
{
    return std::any_of(name.begin(), name.end(),
                       [](char character) { return character >= '\n' && character <= '\r'; }) ||
           name.find("\xC2\x85") != std::string_view::npos ||
           name.find("\xE2\x80\xA8") != std::string_view::npos ||
           name.find("\xE2\x80\xA9") != std::string_view::npos;
}

/// Compares as a Mac does, but for letters beyond ASCII.
bool isSame(std::string_view left, std::string_view right)
{
    return left.size() == right.size() &&
           ::strncasecmp(left.data(), right.data(), left.size()) == 0;
}

template <typename Names>
bool isAmong(const Names &names, std::string_view name)
{
    return std::any_of(names.begin(), names.end(),
                       [name](std::string_view other) { return isSame(name, other); });
}

/// A name's part behind its last dot; empty when it has none.
std::string_view extension(std::string_view name)
{
    const std::size_t dot = name.rfind('.');
    return dot == std::string_view::npos ? std::string_view() : name.substr(dot + 1);
}

bool isBundle(std::string_view name)
{
    return isSame(extension(name), "app") && name.size() > std::string_view(".app").size();
}

/// Extensions of folders that are shown as one item, and of those that ask to be left out.
constexpr std::string_view packages =
    " action aplibrary appex backupbundle band bundle component docset download dsym "
    "fcpbundle framework imovielibrary kext key logicx lrdata mdimporter "
    "migratedphotolibrary mpkg musiclibrary noindex numbers pages photolibrary "
    "photoslibrary pkg playground plugin prefpane pvm qlgenerator rtfd saver scptd "
    "sparsebundle systemextension theater tvlibrary utm vmwarevm vst vst3 wdgt "
    "workflow xcarchive xcodeproj xcworkspace xpc ";

/// Whether a folder is shown as one item, other than an application.
bool isPackage(std::string_view name)
{
    const std::string_view kind = extension(name);
    if (kind.empty() || isSame(kind, "app") || kind.find(' ') != std::string_view::npos) {
        return false;
    }
    std::string word = " ";
    std::transform(kind.begin(), kind.end(), std::back_inserter(word), [](char character) {
        return character >= 'A' && character <= 'Z' ? char(character - 'A' + 'a') : character;
    });
    return packages.find(word + ' ') != std::string_view::npos;
}

/// Whether an index knows what lies in a folder of this name, and somebody asks for it.
bool isSearched(std::string_view name)
{
    return !name.starts_with('.') && !name.starts_with("Library") && !isPackage(name);
}

/// The names of the folders directly inside a folder, sorted, but for those whose contents nobody
/// asks for.
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
        if (mayBeFolder && isSearched(entry->name) && !breaksLine(entry->name)) {
            folders.emplace_back(entry->name);
        }
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

/// Whether a top-level folder may hold applications.
bool isSearchedAtTop(const Volume &volume, std::string_view name)
{
    static constexpr std::array host = {"Applications"sv, "System"sv, "Users"sv};
    static constexpr std::array insides = {"bin"sv, "cores"sv,   "dev"sv,  "etc"sv,
                                           "net"sv, "private"sv, "proc"sv, "sbin"sv,
                                           "sys"sv, "tmp"sv,     "usr"sv,  "var"sv};
    return volume.isHost() ? isAmong(host, name) : !isAmong(insides, name);
}

/// Calls `visit` with the path of each bundle below a folder. `path` is the folder's as it is seen,
/// and `place` what goes before it on the disk.
template <typename Visit>
void visitBundles(const Volume &volume, const std::string &place, const std::string &path,
                  const Visit &visit)
{
    std::string folder = path;
    folder += '/';
    for (const std::string &name : foldersIn(volume, place + folder)) {
        const std::string below = folder + name;
        // The disk's other volumes are no part of it. A longer path leads nowhere, and a hostile
        // disk nests without end.
        const bool isIgnored = (path.empty() && !isSearchedAtTop(volume, name)) ||
                               isSame(below, "/System/Volumes") ||
                               place.size() + below.size() >= PATH_MAX;
        if (isIgnored) {
            continue;
        }
        if (isBundle(name)) {
            visit(below);
        } else {
            visitBundles(volume, place, below, visit);
        }
    }
}

void print(const std::string &path)
{
    std::puts(path.c_str());
}

/// On the host's own disk, one home is looked through: the user's.
void printHostBundles(const Volume &volume)
{
    visitBundles(volume, {}, {}, print);
    const passwd *user = ::getpwuid(::getuid());
    if (user && std::string_view(user->pw_dir) != "/") {
        visitBundles(volume, {}, user->pw_dir, print);
    }
}

void printBundles(const Volume &volume)
{
    const std::string dataVolume = "/System/Volumes/Data";
    if (!volume.open(dataVolume, O_PATH | O_DIRECTORY | O_NOFOLLOW).isOpen()) {
        visitBundles(volume, {}, {}, print);
        return;
    }
    // A path that is in both volumes leads into the first one.
    std::unordered_set<std::string> printed;
    const auto printOnce = [&printed](const std::string &path) {
        if (printed.insert(path).second) {
            print(path);
        }
    };
    visitBundles(volume, {}, {}, printOnce);
    visitBundles(volume, dataVolume, {}, printOnce);
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
    volume.isHost() ? printHostBundles(volume) : printBundles(volume);
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : 1;
}
