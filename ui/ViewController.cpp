#include "ui/ViewController.h"

#include "system/Discovery.h"
#include "system/platform/files/Progress.h"

namespace {

const QString selectionKeyPath = QStringLiteral("selectionIndexes");

} // namespace

ViewController::ViewController(platform::Coder &coder) : platform::ViewController(coder) {}

ViewController::ViewController(const QString &nibName,
                               const std::shared_ptr<platform::Bundle> &bundle)
    : platform::ViewController(nibName, bundle)
{}

ViewController::~ViewController()
{
    stopObserving();
}

void ViewController::setApps(const QList<std::shared_ptr<App>> &apps)
{
    m_apps = apps;
    emit appsChanged();
}

const std::shared_ptr<platform::ArrayController> &ViewController::appsArrayController() const
{
    return m_appsArrayController;
}

void ViewController::setAppsArrayController(
    const std::shared_ptr<platform::ArrayController> &controller)
{
    stopObserving();
    m_appsArrayController = controller;
    emit appsArrayControllerChanged();
}

void ViewController::setSettingsButton(QPushButton *button)
{
    m_settingsButton = button;
    emit settingsButtonChanged();
}

void ViewController::setDataButton(QPushButton *button)
{
    m_dataButton = button;
    emit dataButtonChanged();
}

void ViewController::setPathLabel(QLabel *label)
{
    m_pathLabel = label;
    emit pathLabelChanged();
}

void ViewController::setProgressIndicator(platform::ProgressIndicator *indicator)
{
    m_progressIndicator = indicator;
    emit progressIndicatorChanged();
}

void ViewController::viewDidLoad()
{
    platform::ViewController::viewDidLoad();
    m_appsArrayController->setSortDescriptors(
        {{QStringLiteral("name"), true, platform::caseInsensitiveCompare}});
    m_progressIndicator->startAnimation(this);
    loadApps();
    m_appsArrayController->rearrangeObjects();
    m_progressIndicator->stopAnimation(this);
    m_appsArrayController->addObserver(this, selectionKeyPath, platform::NewValue, nullptr);
}

QVariant ViewController::representedObject() const
{
    return platform::ViewController::representedObject();
}

void ViewController::setRepresentedObject(const QVariant &object)
{
    platform::ViewController::setRepresentedObject(object);
}

void ViewController::observeValueForKeyPath(const QString &keyPath, QObject *, const QVariantMap &,
                                            void *)
{
    if (keyPath != selectionKeyPath) {
        return;
    }
    if (App *const app = selectedApp()) {
        app->loadDetails();
    }
}

void ViewController::loadApps()
{
    const platform::Work listing(platform::Progress::Activity::Listing);
    for (const QString &path : applicationPaths()) {
        if (auto app = appAtPath(path)) {
            m_appsArrayController->addObject(std::move(app));
        }
    }
}

void ViewController::stopObserving()
{
    if (m_appsArrayController) {
        m_appsArrayController->removeObserver(this, selectionKeyPath);
    }
}

App *ViewController::selectedApp() const
{
    const QObjectList selected = m_appsArrayController->selectedObjects();
    return selected.isEmpty() ? nullptr : static_cast<App *>(selected.first());
}
