#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

enum class FileAction
{
    Copy,
    Read,
    Remove
};

/// Why something could not be done with an item.
struct FileError
{
    FileAction action = FileAction::Copy;
    std::string item;   ///< its name or path, in whatever bytes
    std::string reason; ///< half a sentence, as errorReason() gives it

    /// One line of UTF-8 that says all this.
    std::string description() const;
};

/// The error, if there is one, told from outside the folder `folder` that the item is in or is.
std::optional<FileError> inFolder(const std::string &folder, std::optional<FileError> error);

/// An errno in words that a person understands.
std::string errorReason(int error);

/// The name or path as one line of UTF-8: control characters, line separators and bytes that are
/// not UTF-8 become escapes, and the front of a very long path is left out.
std::string printableName(std::string_view name);

} // namespace platform
