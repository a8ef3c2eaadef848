#include "system/platform/files/LibraryOwners.h"

#include "system/platform/files/FileService.h"
#include "system/platform/files/FoldedName.h"

#include <fcntl.h>

#include <set>

namespace platform {

using Names = std::vector<std::string>;

bool hasLibrary(const Volume &volume, const std::string &user)
{
    return volume.open("/users/" + user + "/Library", O_PATH | O_DIRECTORY).isOpen();
}

Names usersWithLibrary(const Volume &volume)
{
    if (volume.isHost()) {
        return {};
    }
    const FileService files(volume);
    const FoldedName home("users");
    const FoldedName shared("Shared");
    const FoldedName guest("Guest");
    std::set<std::string> users;
    const auto addUsersIn = [&](const std::string &folder) {
        for (const std::string &name : files.contents(folder).value_or(Names())) {
            const bool isPerson =
                !name.starts_with('.') && !shared.isSameAs(name) && !guest.isSameAs(name);
            if (isPerson && hasLibrary(volume, name)) {
                users.insert(name);
            }
        }
    };
    // A disk in two volumes, or a copy, may have an empty folder of users besides the real one.
    for (const std::string place : {"/", "/System/Volumes/Data/"}) {
        for (const std::string &name : files.contents(place).value_or(Names())) {
            if (home.isSameAs(name)) {
                addUsersIn(place + name);
            }
        }
    }
    return {users.begin(), users.end()};
}

} // namespace platform
