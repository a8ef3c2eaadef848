#pragma once

#include <algorithm>
#include <string_view>

namespace platform {

/// The next component of the path, taken off its front together with the slashes before it; empty
/// at the end.
inline std::string_view takeComponent(std::string_view &path)
{
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    return component;
}

} // namespace platform
