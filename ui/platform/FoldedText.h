#pragma once

#include <QString>

namespace platform {

/// The text as people search for it: without regard to case, accents and the forms of letters.
inline QString foldedText(const QString &text)
{
    // By way of the upper case, which has two letters where the lower case has one, as in "ß".
    QString folded = text.normalized(QString::NormalizationForm_KD).toUpper().toCaseFolded();
    folded.removeIf([](QChar character) { return character.category() == QChar::Mark_NonSpacing; });
    return folded;
}

} // namespace platform
