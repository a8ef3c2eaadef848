#include "system/platform/PropertyListTexts.h"

#include <algorithm>

namespace platform {

std::size_t PropertyListTexts::longestKey() const
{
    std::size_t length = 0;
    for (const std::string_view key : m_keys) {
        length = std::max(length, key.size());
    }
    return length;
}

std::size_t PropertyListTexts::indexOf(std::string_view key) const
{
    const auto found = std::find(m_keys.begin(), m_keys.end(), key);
    return found != m_keys.end() ? std::size_t(found - m_keys.begin()) : unknown;
}

void PropertyListTexts::set(std::size_t index, std::string_view utf8)
{
    // No name of a file can hold a NUL.
    const bool isUsable = utf8.size() <= longest && utf8.find('\0') == std::string_view::npos;
    m_texts[index] = isUsable ? QString::fromUtf8(utf8.data(), qsizetype(utf8.size())) : QString();
}

} // namespace platform
