#pragma once

#include <string>
#include <string_view>

namespace platform {

/// A file's name in the form in which names that are the same on a Mac have the same bytes.
///
/// Two names are the same when they are canonically equivalent after full case folding: "É" in
/// either form and "é"; "ß" and "SS"; "Σ", "σ" and "ς". Not the same are "²" and "2", "ı" and "i",
/// and names one of which has characters that do not show. A name that is not UTF-8 is the same as
/// itself alone.
class FoldedName
{
public:
    explicit FoldedName(std::string_view name);

    bool isSameAs(std::string_view name) const;

private:
    std::string m_folded;
};

} // namespace platform
