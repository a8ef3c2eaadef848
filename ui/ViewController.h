#pragma once

#include "model/App.h"
#include "ui/platform/ArrayController.h"
#include "ui/platform/ProgressIndicator.h"
#include "ui/platform/ViewController.h"

#include <QLabel>
#include <QList>
#include <QPointer>
#include <QPushButton>

#include <memory>

/// Manages the window: builds the list of applications once, resolves the application that is
/// selected, and carries out the eight commands.
///
/// It builds no view and writes to none: the window follows the records through the layout's
/// bindings. The commands, and the resolution, work on the selected application that stands
/// highest in the table; without one they end silently.
class ViewController : public platform::ViewController, public platform::KeyValueObserver
{
    Q_OBJECT
    Q_PROPERTY(QList<std::shared_ptr<App>> apps READ apps WRITE setApps NOTIFY appsChanged)
    Q_PROPERTY(
        std::shared_ptr<platform::ArrayController> appsArrayController READ appsArrayController
            WRITE setAppsArrayController NOTIFY appsArrayControllerChanged)
    Q_PROPERTY(QPushButton *settingsButton READ settingsButton WRITE setSettingsButton NOTIFY
                   settingsButtonChanged)
    Q_PROPERTY(QPushButton *dataButton READ dataButton WRITE setDataButton NOTIFY dataButtonChanged)
    Q_PROPERTY(QLabel *pathLabel READ pathLabel WRITE setPathLabel NOTIFY pathLabelChanged)
    Q_PROPERTY(platform::ProgressIndicator *progressIndicator READ progressIndicator WRITE
                   setProgressIndicator NOTIFY progressIndicatorChanged)

public:
    explicit ViewController(platform::Coder &coder);
    ViewController(const QString &nibName, const std::shared_ptr<platform::Bundle> &bundle);
    ~ViewController() override;

    /// Free for the layout's bindings; the controller neither reads nor changes it.
    const QList<std::shared_ptr<App>> &apps() const { return m_apps; }
    void setApps(const QList<std::shared_ptr<App>> &apps);

    const std::shared_ptr<platform::ArrayController> &appsArrayController() const;
    void setAppsArrayController(const std::shared_ptr<platform::ArrayController> &controller);

    QPushButton *settingsButton() const { return m_settingsButton; }
    void setSettingsButton(QPushButton *button);

    QPushButton *dataButton() const { return m_dataButton; }
    void setDataButton(QPushButton *button);

    QLabel *pathLabel() const { return m_pathLabel; }
    void setPathLabel(QLabel *label);

    platform::ProgressIndicator *progressIndicator() const { return m_progressIndicator; }
    void setProgressIndicator(platform::ProgressIndicator *indicator);

    /// Lists every application, sorted by name without regard to case, then starts to follow the
    /// selection. Needs the array controller and the progress indicator.
    void viewDidLoad() override;

    QVariant representedObject() const override;
    void setRepresentedObject(const QVariant &object) override;

    void observeValueForKeyPath(const QString &keyPath, QObject *object, const QVariantMap &change,
                                void *context) override;

public slots:
    void showDataAction(QObject *sender);
    void showPrefsFileAction(QObject *sender);
    void launchAppAction(QObject *sender);
    void showAppAction(QObject *sender);
    void backUpPrefsAction(QObject *sender);
    void restorePrefsAction(QObject *sender);
    void backUpDataAction(QObject *sender);
    void restoreDataAction(QObject *sender);

signals:
    void appsChanged();
    void appsArrayControllerChanged();
    void settingsButtonChanged();
    void dataButtonChanged();
    void pathLabelChanged();
    void progressIndicatorChanged();

private:
    /// Adds a record for each application that is installed to the array controller.
    void loadApps();

    void stopObserving();

    /// The selected application that stands highest in the table, or none.
    App *selectedApp() const;

    QList<std::shared_ptr<App>> m_apps;
    std::shared_ptr<platform::ArrayController> m_appsArrayController;
    QPointer<QPushButton> m_settingsButton;
    QPointer<QPushButton> m_dataButton;
    QPointer<QLabel> m_pathLabel;
    QPointer<platform::ProgressIndicator> m_progressIndicator;
};
