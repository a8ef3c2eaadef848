#pragma once

#include <QString>

/// Shows a warning with one button and returns when the user has closed it, in whatever way.
void showMessage(const QString &title, const QString &text, const QString &buttonTitle);

/// The same for good news, which nobody needs when the program is about to end.
void showSuccess(const QString &title, const QString &text, const QString &buttonTitle);

/// Asks with the buttons "Ok" and "Cancel". No only for "Cancel".
bool confirm(const QString &title, const QString &text);
