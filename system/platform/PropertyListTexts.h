#pragma once

#include <QString>

#include <span>
#include <string_view>
#include <vector>

namespace platform {

/// What a reader of property lists fills: a text for each of the keys that are asked for.
class PropertyListTexts
{
public:
    /// Bytes of the longest key or text that is of any use; a longer one counts as none.
    static constexpr std::size_t longest = std::size_t{16} * 1024;

    static constexpr std::size_t unknown = std::size_t(-1);

    explicit PropertyListTexts(std::span<const std::string_view> keys) : m_keys(keys) { clear(); }

    std::size_t size() const { return m_keys.size(); }

    /// Bytes of the longest key that is asked for.
    std::size_t longestKey() const;

    /// The place of a key, or `unknown` if it is not asked for.
    std::size_t indexOf(std::string_view key) const;

    /// Keeps a text in UTF-8, or null when it is too long or holds a NUL.
    void set(std::size_t index, std::string_view utf8);
    void setNull(std::size_t index) { m_texts[index] = QString(); }
    void clear() { m_texts.assign(m_keys.size(), QString()); }

    std::vector<QString> take() { return std::move(m_texts); }

private:
    std::span<const std::string_view> m_keys;
    std::vector<QString> m_texts;
};

} // namespace platform
