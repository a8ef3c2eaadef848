#include "system/platform/files/FoldedName.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace platform {

namespace {

char folded(char ascii)
{
    return ascii >= 'A' && ascii <= 'Z' ? static_cast<char>(ascii - 'A' + 'a') : ascii;
}

bool isAscii(std::string_view name)
{
    return std::none_of(name.begin(), name.end(), [](char byte) { return (byte & 0x80) != 0; });
}

// The text in the library's form for these options, or as it is when it is not UTF-8.
std::string mapped(std::string_view text, int options)
{
    utf8proc_uint8_t *bytes = nullptr;
    const utf8proc_ssize_t length =
        ::utf8proc_map(reinterpret_cast<const utf8proc_uint8_t *>(text.data()),
                       static_cast<utf8proc_ssize_t>(text.size()), &bytes,
                       static_cast<utf8proc_option_t>(options));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(bytes, &std::free);
    return length < 0 ? std::string(text)
                      : std::string(reinterpret_cast<const char *>(bytes),
                                    static_cast<std::size_t>(length));
}

} // namespace

// Unicode's canonical caseless match wants the text decomposed before it is folded, too: a few
// Greek letters would keep their marks in another order.
FoldedName::FoldedName(std::string_view name)
    : m_folded(mapped(mapped(name, UTF8PROC_DECOMPOSE), UTF8PROC_DECOMPOSE | UTF8PROC_CASEFOLD))
{}

bool FoldedName::isSameAs(std::string_view name) const
{
    // Nearly all the names of a folder: nothing but their letters' case to fold.
    if (isAscii(name)) {
        return std::equal(name.begin(), name.end(), m_folded.begin(), m_folded.end(),
                          [](char ascii, char other) { return folded(ascii) == other; });
    }
    return FoldedName(name).m_folded == m_folded;
}

} // namespace platform
