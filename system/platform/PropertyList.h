#pragma once

#include <QByteArray>
#include <QString>

#include <span>
#include <string_view>
#include <vector>

namespace platform {

/// Texts of the dictionary that a property list, XML or binary, consists of.
///
/// Only the texts that are asked for beforehand are taken from it; of all else no more is looked at
/// than is needed to find them. So neither time nor memory grows beyond the size of the file,
/// whatever it holds.
class PropertyList
{
public:
    /// No texts.
    PropertyList() = default;

    /// Reads the texts under `keys`, which must outlive the object. What is no property list, or
    /// holds something other than a dictionary, has no texts.
    PropertyList(const QByteArray &bytes, std::span<const std::string_view> keys);

    /// The value under one of the keys when it is text of at most 16 KiB in UTF-8 and without a
    /// NUL, else null. An empty text is not null.
    QString text(std::string_view key) const;

private:
    std::span<const std::string_view> m_keys;
    std::vector<QString> m_texts; ///< one for each key
};

} // namespace platform
