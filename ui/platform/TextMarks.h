#pragma once

#include <QString>

namespace platform {

/// Put before a text, it makes a leading punctuation mark, such as the slash of a path, stand
/// where it is read, also where the window runs from right to left.
inline constexpr QChar leftToRightMark(0x200E);

/// The text with a blank for each line break and each other control character.
inline QString singleLine(QString text)
{
    for (QChar &character : text) {
        const QChar::Category category = character.category();
        if (category == QChar::Other_Control || category == QChar::Separator_Line ||
            category == QChar::Separator_Paragraph) {
            character = u' ';
        }
    }
    return text;
}

} // namespace platform
