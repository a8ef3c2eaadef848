#include "ui/Alerts.h"

#include "ui/platform/Alert.h"

using platform::Alert;

namespace {

constexpr int secondButtonReturn = Alert::firstButtonReturn + 1;

Alert warning(const QString &title, const QString &text)
{
    Alert alert;
    alert.setMessageText(title);
    alert.setInformativeText(text);
    return alert;
}

} // namespace

void showMessage(const QString &title, const QString &text, const QString &buttonTitle)
{
    Alert alert = warning(title, text);
    alert.addButtonWithTitle(buttonTitle);
    alert.runModal();
}

void showSuccess(const QString &title, const QString &text, const QString &buttonTitle)
{
    Alert alert = warning(title, text);
    alert.addButtonWithTitle(buttonTitle);
    alert.setDispensable(true);
    alert.runModal();
}

bool confirm(const QString &title, const QString &text)
{
    Alert alert = warning(title, text);
    alert.addButtonWithTitle(QStringLiteral("Ok"));
    alert.addButtonWithTitle(QStringLiteral("Cancel"));
    return alert.runModal() != secondButtonReturn;
}
