#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

namespace platform {

/// Gives copies the owner, mode, extended attributes (access control lists among them) and times
/// of their originals. What the disk or the system does not permit to keep is left out: the
/// owner and group, and attributes that belong to the system.
///
/// On failure of a function errno tells why.
class ItemMetadata
{
public:
    ItemMetadata();

    /// Notes the owner that new items get, from the first one made. Before that, and after
    /// forgetOwner(), every item is given its owner.
    void learnOwner(int item);
    void forgetOwner() { m_knowsOwner = false; }

    /// Reads the names of the extended attributes that `source` has.
    bool readAttributeNames(int source);

    /// The mode to create a plain file with after readAttributeNames().
    mode_t creationMode(const struct stat &status) const;

    /// What the process's mask leaves of a mode that a file is created with.
    mode_t granted(mode_t mode) const { return mode & ~m_mask; }

    /// Completes a plain file or a folder that has the mode `current` so far, after
    /// readAttributeNames() for its original.
    bool apply(int source, int destination, const struct stat &status, mode_t current);

    /// Completes any other item by its name.
    bool applyToName(int folder, const char *name, const struct stat &status);

    /// Takes away what a new item inherits from the folder that it lies in.
    static void stripInherited(int item);

private:
    bool isOwner(const struct stat &status) const;
    bool copyAttribute(int source, int destination, const char *name);
    bool copyAttributes(int source, int destination);

    std::vector<char> m_attributeNames;
    std::vector<char> m_attributeValue;
    std::size_t m_attributeNamesLength = 0;
    mode_t m_mask = 0;
    uid_t m_newUser = 0;
    gid_t m_newGroup = 0;
    bool m_knowsOwner = false;
};

} // namespace platform
