#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

namespace platform {

/// Gives copies the owner, mode, extended attributes (access control lists among them) and times
/// of their originals. What the disk or the system cannot keep, or does not permit to keep, is
/// left out; but a user's own attribute that the disk can hold arrives.
///
/// On failure of a function errno tells why.
class ItemMetadata
{
public:
    /// `sample` is what became of a plain file that was made with every permission: it tells the
    /// owner and the mode that new items get.
    explicit ItemMetadata(const struct stat &sample);

    /// Reads the names of the extended attributes that `source` has.
    bool readAttributeNames(int source);

    /// The mode to create the copy of a plain file with: its owner can give it attributes.
    static mode_t creationMode(const struct stat &status);

    /// Completes a plain file that was created with creationMode(), after readAttributeNames() for
    /// its original.
    bool applyToFile(int source, int destination, const struct stat &status);

    /// Completes a private folder, after readAttributeNames() for its original.
    bool applyToFolder(int source, int destination, const struct stat &status);

    /// Completes any other item by its name, and that of its original, in open folders.
    bool applyToName(int sourceFolder, const char *source, int folder, const char *name,
                     const struct stat &status);

private:
    bool apply(int source, int destination, const struct stat &status, mode_t current);
    bool isOwner(const struct stat &status) const;
    template <typename List>
    bool readNames(List list);
    template <typename Get, typename Set>
    bool copyAttributes(int otherDisk, Get get, Set set);
    template <typename Get, typename Set>
    bool copyAttribute(const char *name, int otherDisk, Get get, Set set);
    bool copyAttributesOfName(const std::string &source, const std::string &name);

    std::vector<char> m_attributeNames;
    std::vector<char> m_attributeValue;
    std::size_t m_attributeNamesLength = 0;
    mode_t m_granted = 0;
    dev_t m_device = 0;
    uid_t m_newUser = 0;
    gid_t m_newGroup = 0;
};

/// Takes away what a new item inherits from the folder that it lies in.
void stripInherited(int item);

} // namespace platform
