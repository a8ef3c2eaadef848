#pragma once

#include <string>
#include <vector>

namespace platform {

class Volume;

/// True when the user of this name has a library folder on the volume.
bool hasLibrary(const Volume &volume, const std::string &user);

/// The names, in byte order, of the users who have a library on the volume, as their home folders
/// are called; not "Shared", "Guest" and hidden ones. None when the root is the host's own, where
/// home folders are anywhere.
std::vector<std::string> usersWithLibrary(const Volume &volume);

} // namespace platform
