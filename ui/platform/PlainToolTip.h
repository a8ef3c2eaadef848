#pragma once

#include <QString>
#include <QTextDocument>

namespace platform {

/// A text for a tool tip that is shown as it stands. Tool tips guess whether a text is markup, and
/// markup from a foreign disk could name files to be read.
inline QString plainToolTip(const QString &text)
{
    return text.isEmpty() ? text : Qt::convertFromPlainText(text);
}

} // namespace platform
