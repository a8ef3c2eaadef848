#include "system/platform/Workspace.h"
#include "ui/ViewController.h"

using platform::Workspace;

namespace {

/// Leaves the choice of the window to the file manager.
const QString anyWindow = QStringLiteral("");

} // namespace

void ViewController::showDataAction(QObject *)
{
    App *const app = selectedApp();
    if (!app || !app->data()->found()) {
        return;
    }
    Workspace::sharedWorkspace().openURL(QUrl::fromLocalFile(app->data()->path()));
}

void ViewController::showPrefsFileAction(QObject *)
{
    App *const app = selectedApp();
    if (!app || !app->prefs()->found()) {
        return;
    }
    Workspace::sharedWorkspace().selectFile(app->prefs()->path(), anyWindow);
}

void ViewController::launchAppAction(QObject *)
{
    if (App *const app = selectedApp()) {
        Workspace::sharedWorkspace().launchApplication(app->path());
    }
}

void ViewController::showAppAction(QObject *)
{
    if (App *const app = selectedApp()) {
        Workspace::sharedWorkspace().selectFile(app->path(), anyWindow);
    }
}
