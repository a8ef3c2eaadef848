#include "ui/Alerts.h"
#include "ui/ViewController.h"
#include "ui/platform/Activity.h"

using platform::Activity;

namespace {

/// What the user is told of one kind of location.
struct Wording
{
    QString alreadyBackedUpTitle;
    QString alreadyBackedUpText;
    QString backupErrorText;
    QString backupErrorEnd;
    QString restoreTitle;
    QString restoreText;
    QString runningText;
    QString restoredTitle;
    QString restoredText;
    QString restoreErrorText;
    QString backingUp; ///< "%1" is the application's name
    QString restoring;
};

const Wording prefsWording = {
    QStringLiteral("Preferences already backed up"),
    QStringLiteral("A backup of this application's preferences already exists.\n\n"
                   "Do you want to override the existing backup?"),
    QStringLiteral("There was an error backing up the preferences.\n\n"
                   "Please make sure you have appropriate permissions!\n("),
    QStringLiteral(")."),
    QStringLiteral("Restoring of Preferences"),
    QStringLiteral("Are you sure you want to restore this app's preferences from backup? "
                   "The current preferences will be overwritten.\n\n"
                   "(The preferences backup will not be deleted and can be restored again in "
                   "future.)"),
    QStringLiteral("The application is currently running.\n\n"
                   "It is recommended you terminate it first before restoring its preferences. "
                   "Are you sure you want to continue?"),
    QStringLiteral("Preferences Restored!"),
    QStringLiteral("The preferences were successfully restored from backup."),
    QStringLiteral("There was an error restoring the preferences.\n\n"
                   "Please make sure you have appropriate permissions!\n("),
    QStringLiteral("Backing up the preferences of %1"),
    QStringLiteral("Restoring the preferences of %1"),
};

const Wording dataWording = {
    QStringLiteral("Data already backed up"),
    QStringLiteral("A backup of this application's data already exists.\n\n"
                   "Do you want to override the existing backup?"),
    QStringLiteral("There was an error backing up the data.\n\n"
                   "Please make sure you have appropriate permissions!\n("),
    QStringLiteral(")"),
    QStringLiteral("Data Restore"),
    QStringLiteral("Are you sure you want to restore this app's data from backup?\n\n"
                   "(The data backup will not be deleted and can be restored again, but the "
                   "current data will be overwritten.)"),
    QStringLiteral("The application is currently running.\n\n"
                   "It is recommended you terminate it first before restoring its data. "
                   "Are you sure you want to continue?"),
    QStringLiteral("Data Restored!"),
    QStringLiteral("The data was successfully restored from backup."),
    QStringLiteral("There was an error restoring the data.\n\n"
                   "Please make sure you have appropriate permissions!\n("),
    QStringLiteral("Backing up the data of %1"),
    QStringLiteral("Restoring the data of %1"),
};

const QString okTitle = QStringLiteral("Ok");

void backUpAskingFirst(const App &app, Path &location, const Wording &wording)
{
    const Activity activity(wording.backingUp.arg(app.name()));
    if (!location.found()) {
        return;
    }
    if (location.backedUp() &&
        !confirm(wording.alreadyBackedUpTitle, wording.alreadyBackedUpText)) {
        return;
    }
    if (!location.backUp()) {
        showMessage(QStringLiteral("Backup Error"),
                    wording.backupErrorText + location.pathBak() + wording.backupErrorEnd, okTitle);
    }
}

void restoreAskingFirst(const App &app, Path &location, const Wording &wording)
{
    const Activity activity(wording.restoring.arg(app.name()));
    if (!location.backedUp()) {
        return;
    }
    if (!confirm(wording.restoreTitle, wording.restoreText)) {
        return;
    }
    if (app.isAppRunning() &&
        !confirm(QStringLiteral("Application is Running"), wording.runningText)) {
        return;
    }
    if (location.restore()) {
        showSuccess(wording.restoredTitle, wording.restoredText, okTitle);
    } else {
        showMessage(QStringLiteral("Restore Error"),
                    wording.restoreErrorText + location.path() + QStringLiteral(")."), okTitle);
    }
}

} // namespace

void ViewController::backUpPrefsAction(QObject *)
{
    if (App *const app = selectedApp()) {
        backUpAskingFirst(*app, *app->prefs(), prefsWording);
    }
}

void ViewController::restorePrefsAction(QObject *)
{
    if (App *const app = selectedApp()) {
        restoreAskingFirst(*app, *app->prefs(), prefsWording);
    }
}

void ViewController::backUpDataAction(QObject *)
{
    if (App *const app = selectedApp()) {
        backUpAskingFirst(*app, *app->data(), dataWording);
    }
}

void ViewController::restoreDataAction(QObject *)
{
    if (App *const app = selectedApp()) {
        restoreAskingFirst(*app, *app->data(), dataWording);
    }
}
