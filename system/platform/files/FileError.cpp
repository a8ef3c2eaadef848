#include "system/platform/files/FileError.h"

#include <utf8proc.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace platform {

namespace {

constexpr std::size_t longestShown = 300;

struct Reason
{
    int error;
    const char *words;
};

constexpr std::array reasons = {
    Reason{EACCES, "permission was denied"},
    Reason{EPERM, "permission was denied"},
    Reason{ENOENT, "it does not exist"},
    Reason{EEXIST, "an item with this name exists already"},
    Reason{ENOTEMPTY, "new items keep appearing in it"},
    Reason{ENOSPC, "the disk is full"},
    Reason{EDQUOT, "the disk quota is used up"},
    Reason{EROFS, "the disk is read-only"},
    Reason{ENAMETOOLONG, "its name is too long for the disk"},
    Reason{EINVAL, "the disk does not accept it"},
    Reason{EILSEQ, "the disk does not accept its name"},
    Reason{EOPNOTSUPP, "the disk does not support it"},
    Reason{EIO, "the disk reported an error"},
    Reason{ENXIO, "the disk is not there any more"},
    Reason{ENODEV, "the disk is not there any more"},
    Reason{ESTALE, "it was moved meanwhile"},
    Reason{ENOTDIR, "a part of its path is not a folder"},
    Reason{ELOOP, "its path has too many symbolic links"},
    Reason{EFBIG, "it is too large for the disk"},
    Reason{EBUSY, "it is in use"},
    Reason{EXDEV, "it lies on another disk"},
    Reason{EMFILE, "too many files are open"},
    Reason{ENFILE, "too many files are open"},
    Reason{ENOMEM, "the memory is full"},
};

const char *actionWords(FileAction action)
{
    switch (action) {
    case FileAction::Copy:
        return "could not be copied";
    case FileAction::Read:
        return "could not be read";
    case FileAction::Remove:
        return "could not be removed";
    }
    return "";
}

// Characters that break or reorder a line.
bool isPlain(utf8proc_int32_t character)
{
    const bool isControl = character < 0x20 || (character >= 0x7F && character < 0xA0);
    const bool isSeparator = character == 0x2028 || character == 0x2029;
    const bool isDirection = (character >= 0x202A && character <= 0x202E) ||
                             (character >= 0x2066 && character <= 0x2069);
    return !isControl && !isSeparator && !isDirection;
}

std::string escaped(std::string_view bytes)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (const char character : bytes) {
        const auto byte = static_cast<std::uint8_t>(character);
        if (character == '\n') {
            result += "\\n";
        } else {
            result += {'\\', 'x', digits[byte >> 4U], digits[byte & 0xFU]};
        }
    }
    return result;
}

} // namespace

std::string FileError::description() const
{
    return "“" + printableName(item) + "” " + actionWords(action) + ": " + reason + '.';
}

std::optional<FileError> inFolder(const std::string &folder, std::optional<FileError> error)
{
    if (error) {
        error->item = error->item.empty() ? folder : folder + '/' + error->item;
    }
    return error;
}

std::string errorReason(int error)
{
    for (const Reason &reason : reasons) {
        if (reason.error == error) {
            return reason.words;
        }
    }
    const char *words = ::strerrordesc_np(error);
    return words != nullptr ? words : "error " + std::to_string(error);
}

std::string printableName(std::string_view name)
{
    std::string result;
    if (name.size() > longestShown) {
        result = "…";
        name.remove_prefix(name.size() - longestShown);
        while (!name.empty() && (static_cast<std::uint8_t>(name.front()) & 0xC0U) == 0x80) {
            name.remove_prefix(1); // the rest of a character that was cut
        }
    }
    while (!name.empty()) {
        utf8proc_int32_t character = 0;
        const utf8proc_ssize_t length =
            ::utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t *>(name.data()),
                               static_cast<utf8proc_ssize_t>(name.size()), &character);
        const bool isUtf8 = length > 0;
        const std::string_view bytes =
            name.substr(0, isUtf8 ? static_cast<std::size_t>(length) : 1);
        const bool isShown = isUtf8 && isPlain(character);
        result += isShown ? std::string(bytes) : escaped(bytes);
        name.remove_prefix(bytes.size());
    }
    return result;
}

} // namespace platform
