#include "ui/Alerts.h"

#include "ui/platform/Alert.h"

using platform::Alert;

namespace {

constexpr int secondButtonReturn = Alert::firstButtonReturn + 1;

int runWarning(const QString &title, const QString &text, const QStringList &buttonTitles,
               bool isDispensable = false)
{
    Alert alert;
    alert.setMessageText(title);
    alert.setInformativeText(text);
    for (const QString &buttonTitle : buttonTitles) {
        alert.addButtonWithTitle(buttonTitle);
    }
    alert.setDispensable(isDispensable);
    return alert.runModal();
}

} // namespace

void showMessage(const QString &title, const QString &text, const QString &buttonTitle)
{
    runWarning(title, text, {buttonTitle});
}

void showSuccess(const QString &title, const QString &text, const QString &buttonTitle)
{
    runWarning(title, text, {buttonTitle}, true);
}

bool confirm(const QString &title, const QString &text)
{
    return runWarning(title, text, {QStringLiteral("Ok"), QStringLiteral("Cancel")}) !=
           secondButtonReturn;
}
