#pragma once

#include "ui/platform/BindingExpression.h"
#include "ui/platform/DiskStatus.h"
#include "ui/platform/WorkObserver.h"

#include <QList>
#include <QMetaProperty>
#include <QObject>

#include <memory>
#include <vector>

class QWidget;

namespace platform {

class ArrayController;
class ViewController;

/// Makes the connections that a layout declares, between its objects and a controller.
///
/// - Outlets: an object of the layout whose name is that of a property of the controller is
///   stored there. The layout's dynamic property `arrayController` names an array controller that
///   is created with it; every table of the layout shows its records, and every filter field
///   filters them.
/// - Actions: an action or a button with a dynamic property `action` invokes the slot of that
///   name, with itself as the sender.
/// - Bindings: a dynamic property `bind_P` of an object holds the expression
///   (BindingExpression) whose value its property P follows. A text property shows dates and
///   numbers in the user's locale, at the place of "%1" in `format_P` if there is one; `null_P` for
///   a value that is unset and `none_P` when nothing is selected.
/// - The dynamic property `contextMenu` of a widget lists the menus whose commands
///   its context menu offers.
///
/// - A command that takes long is told of by the status label and the progress indicators. While it
///   works no other begins: what is pressed meanwhile is dropped.
///
/// A binding is read again when the selection changes, and when any property of the records that it
/// reads notifies.
class LayoutConnections : public QObject
{
    Q_OBJECT

public:
    /// `layout` and `controller` outlive the connections.
    LayoutConnections(QWidget &layout, ViewController &controller, QObject *parent);
    ~LayoutConnections() override;

private slots:
    void updateBindings();

private:
    struct Binding
    {
        QObject *object = nullptr;
        QMetaProperty property;
        BindingExpression expression;
        QString format;
        QString nullText;
        QString noSelectionText;
    };

    void connectOutlet(QObject &object);
    void connectAction(QObject &object);
    void connectWork(QObject &object);
    void connectContextMenu(QObject &object);
    void collectBindings(QObject &object);
    void observeRecords();
    void update(const Binding &binding) const;
    QVariant textValue(const Binding &binding) const;
    void invoke(const QByteArray &action, QObject *sender);

    QWidget &m_layout;
    ViewController &m_controller;
    std::shared_ptr<ArrayController> m_arrayController;
    DiskStatus m_disk;
    WorkObserver m_work;
    BindingRoots m_roots;
    std::vector<Binding> m_bindings;
    QObjectList m_observedRecords;
    QObjectList m_refusedPresses; ///< buttons whose click is to be dropped
};

} // namespace platform
