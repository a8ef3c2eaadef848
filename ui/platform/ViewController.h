#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

#include <memory>

namespace platform {

class Bundle;

/// What creates the objects of a layout.
class Coder
{};

/// Stands for NSViewController: manages the content of a window. Its layout's connections are
/// made before viewDidLoad is called.
class ViewController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QVariant representedObject READ representedObject WRITE setRepresentedObject)

public:
    /// For a controller that a layout creates.
    explicit ViewController(Coder &) {}

    /// For the layout `nibName` in the resources of `bundle`; both may be absent.
    ViewController(const QString &nibName, const std::shared_ptr<Bundle> &bundle)
        : m_nibName(nibName)
        , m_nibBundle(bundle)
    {}

    const QString &nibName() const { return m_nibName; }
    const std::shared_ptr<Bundle> &nibBundle() const { return m_nibBundle; }

    /// Called once, when the view has been loaded and connected.
    virtual void viewDidLoad() {}

    virtual QVariant representedObject() const { return m_representedObject; }
    virtual void setRepresentedObject(const QVariant &object) { m_representedObject = object; }

private:
    QString m_nibName;
    std::shared_ptr<Bundle> m_nibBundle;
    QVariant m_representedObject;
};

} // namespace platform
