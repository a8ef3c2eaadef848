#include "ui/platform/LayoutConnections.h"

#include "ui/platform/ArrayController.h"
#include "ui/platform/FilterField.h"
#include "ui/platform/InputGate.h"
#include "ui/platform/ProgressIndicator.h"
#include "ui/platform/StatusLabel.h"
#include "ui/platform/TableView.h"
#include "ui/platform/ViewController.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QContextMenuEvent>
#include <QDateTime>
#include <QLocale>
#include <QMenu>
#include <QShortcut>

#include <algorithm>
#include <optional>

namespace platform {

namespace {

const QByteArray bindingPrefix = QByteArrayLiteral("bind_");

/// A command that runs: with the wait cursor, and the pressed look of the button that started it.
class CommandUnderWay
{
public:
    explicit CommandUnderWay(QObject *sender) : m_button(qobject_cast<QAbstractButton *>(sender))
    {
        QApplication::setOverrideCursor(Qt::WaitCursor);
        if (m_button) {
            m_button->setDown(true);
        }
        QGuiApplication::sync();
        InputGate::takeTurn(); // the window is drawn before the work begins
    }
    ~CommandUnderWay()
    {
        m_work.reset(); // who sees the button come up may go on at once
        if (m_button) {
            m_button->setDown(false);
        }
        QApplication::restoreOverrideCursor();
    }
    CommandUnderWay(const CommandUnderWay &) = delete;
    CommandUnderWay &operator=(const CommandUnderWay &) = delete;

private:
    std::optional<InputGate::Work> m_work{std::in_place};
    QPointer<QAbstractButton> m_button;
};

/// Opens a widget's context menu where the keyboard is at work in it.
void openContextMenu(QWidget &widget)
{
    const QPoint place = widget.inputMethodQuery(Qt::ImCursorRectangle).toRect().center();
    QContextMenuEvent request(QContextMenuEvent::Keyboard, place, widget.mapToGlobal(place));
    QCoreApplication::sendEvent(&widget, &request);
}

/// A date and time in the user's short form, but with all digits of the year.
QString textOfDate(const QDateTime &date)
{
    const QLocale locale;
    QString format = locale.dateFormat(QLocale::ShortFormat);
    if (!format.contains(QLatin1String("yyyy"))) {
        format.replace(QLatin1String("yy"), QLatin1String("yyyy"));
    }
    const QDateTime local = date.toLocalTime();
    return locale.toString(local.date(), format) + u' ' +
           locale.toString(local.time(), QLocale::ShortFormat);
}

/// Null for a value that is unset.
QString textOfValue(const QVariant &value)
{
    if (value.typeId() != QMetaType::QDateTime) {
        return value.toString();
    }
    return value.toDateTime().isValid() ? textOfDate(value.toDateTime()) : QString();
}

} // namespace

LayoutConnections::LayoutConnections(QWidget &layout, ViewController &controller, QObject *parent)
    : QObject(parent)
    , m_layout(layout)
    , m_controller(controller)
    , m_arrayController(std::make_shared<ArrayController>())
    , m_roots{*m_arrayController, m_disk}
{
    const QByteArray name = layout.property("arrayController").toByteArray();
    controller.setProperty(name, QVariant::fromValue(m_arrayController));

    QObjectList objects = layout.findChildren<QObject *>();
    objects.prepend(&layout);
    for (QObject *object : objects) {
        connectOutlet(*object);
        connectAction(*object);
        connectWork(*object);
        connectContextMenu(*object);
        collectBindings(*object);
        if (auto *const table = qobject_cast<TableView *>(object)) {
            table->setArrayController(*m_arrayController);
        }
        if (auto *const filter = qobject_cast<FilterField *>(object)) {
            filter->setArrayController(*m_arrayController);
        }
        if (auto *const status = qobject_cast<StatusLabel *>(object)) {
            status->setSources(*m_arrayController, m_disk);
        }
    }
    connect(m_arrayController.get(), &ArrayController::selectionIndexesChanged, this, [this] {
        observeRecords();
        updateBindings();
    });
    updateBindings();
}

LayoutConnections::~LayoutConnections() = default;

void LayoutConnections::connectOutlet(QObject &object)
{
    if (object.objectName().isEmpty()) {
        return;
    }
    const int index = m_controller.metaObject()->indexOfProperty(object.objectName().toUtf8());
    if (index >= 0) {
        m_controller.metaObject()->property(index).write(&m_controller,
                                                         QVariant::fromValue(&object));
    }
}

void LayoutConnections::connectAction(QObject &object)
{
    const QByteArray action = object.property("action").toByteArray();
    if (action.isEmpty()) {
        return;
    }
    const auto invokeAction = [this, action, sender = &object] { invoke(action, sender); };
    if (auto *const button = qobject_cast<QAbstractButton *>(&object)) {
        // The press decides: assistive technology's click comes a while after it.
        connect(button, &QAbstractButton::pressed, this, [this, button] {
            const bool isUnderWay = InputGate::shared().isWorkUnderWay();
            m_refusedPresses.removeAll(button);
            if (isUnderWay) {
                m_refusedPresses.append(button);
            }
        });
        connect(button, &QAbstractButton::clicked, this, [this, button, invokeAction] {
            if (m_refusedPresses.removeAll(button) == 0) {
                invokeAction();
            }
        });
    } else if (auto *const command = qobject_cast<QAction *>(&object)) {
        command->setAutoRepeat(false);
        connect(command, &QAction::triggered, this, invokeAction);
    }
}

void LayoutConnections::invoke(const QByteArray &action, QObject *sender)
{
    if (InputGate::shared().isWorkUnderWay()) {
        return;
    }
    if (WorkObserver::isTakingTurn()) {
        return WorkObserver::doLater(*this, [this, action, sender] { invoke(action, sender); });
    }
    const CommandUnderWay underWay(sender);
    QMetaObject::invokeMethod(&m_controller, action, Qt::DirectConnection,
                              Q_ARG(QObject *, sender));
}

void LayoutConnections::connectWork(QObject &object)
{
    if (auto *const status = qobject_cast<StatusLabel *>(&object)) {
        connect(&m_work, &WorkObserver::progressed, status, &StatusLabel::setText);
        connect(&m_work, &WorkObserver::ended, status, &StatusLabel::showCount);
    }
    if (auto *const indicator = qobject_cast<ProgressIndicator *>(&object)) {
        connect(&m_work, &WorkObserver::progressed, indicator,
                [indicator](const QString &, int done) { indicator->showWork(done); });
        connect(&m_work, &WorkObserver::ended, indicator, &ProgressIndicator::endWork);
    }
}

void LayoutConnections::connectContextMenu(QObject &object)
{
    const QStringList menus = object.property("contextMenu").toStringList();
    auto *const widget = qobject_cast<QWidget *>(&object);
    if (menus.isEmpty() || !widget) {
        return;
    }
    widget->setContextMenuPolicy(Qt::ActionsContextMenu);
    // The menu key's stand-in on keyboards without one, which Qt leaves to the desktop's theme.
    auto *const shortcut =
        new QShortcut(Qt::SHIFT | Qt::Key_F10, widget, nullptr, nullptr, Qt::WidgetShortcut);
    connect(shortcut, &QShortcut::activated, widget, [widget] { openContextMenu(*widget); });
    for (const QString &name : menus) {
        auto *const menu = m_layout.findChild<QMenu *>(name);
        if (!menu) {
            continue;
        }
        auto *const heading = new QAction(menu->title().remove(u'&'), widget);
        heading->setSeparator(true);
        widget->addAction(heading);
        widget->addActions(menu->actions());
    }
}

void LayoutConnections::collectBindings(QObject &object)
{
    for (const QByteArray &declaration : object.dynamicPropertyNames()) {
        if (!declaration.startsWith(bindingPrefix)) {
            continue;
        }
        const QByteArray name = declaration.mid(bindingPrefix.size());
        const int index = object.metaObject()->indexOfProperty(name);
        if (index < 0) {
            qWarning("No property %s to bind in %s", name.constData(),
                     qPrintable(object.objectName()));
            continue;
        }
        m_bindings.push_back({&object, object.metaObject()->property(index),
                              BindingExpression(object.property(declaration).toString()),
                              object.property("format_" + name).toString(),
                              object.property("null_" + name).toString(),
                              object.property("none_" + name).toString()});
    }
}

void LayoutConnections::observeRecords()
{
    for (QObject *record : std::as_const(m_observedRecords)) {
        disconnect(record, nullptr, this, nullptr);
    }
    m_observedRecords.clear();
    const QMetaMethod update =
        staticMetaObject.method(staticMetaObject.indexOfSlot("updateBindings()"));
    for (const Binding &binding : m_bindings) {
        for (QObject *record : binding.expression.objects(m_roots)) {
            if (m_observedRecords.contains(record)) {
                continue;
            }
            m_observedRecords.append(record);
            for (int i = 0; i < record->metaObject()->propertyCount(); ++i) {
                const QMetaProperty property = record->metaObject()->property(i);
                if (property.hasNotifySignal()) {
                    connect(record, property.notifySignal(), this, update);
                }
            }
        }
    }
}

void LayoutConnections::updateBindings()
{
    for (const Binding &binding : m_bindings) {
        update(binding);
    }
}

void LayoutConnections::update(const Binding &binding) const
{
    QVariant value;
    switch (binding.property.typeId()) {
    case QMetaType::Bool:
        value = binding.expression.isTrue(m_roots);
        break;
    case QMetaType::QString:
        value = textValue(binding);
        break;
    default:
        value = binding.expression.value(m_roots);
        if (!value.isValid()) {
            value = QVariant(binding.property.metaType());
        }
    }
    // A widget that is not shown yet calls itself invisible, whether it is hidden or not.
    const bool mayBeVisibility = binding.property.typeId() == QMetaType::Bool;
    if (mayBeVisibility || binding.property.read(binding.object) != value) {
        binding.property.write(binding.object, value);
    }
}

QVariant LayoutConnections::textValue(const Binding &binding) const
{
    if (binding.expression.needsSelection() && m_arrayController->selectionIndexes().isEmpty()) {
        return binding.noSelectionText;
    }
    const QString text = textOfValue(binding.expression.value(m_roots));
    if (text.isNull()) {
        return binding.nullText;
    }
    return binding.format.isEmpty() ? text : binding.format.arg(text);
}

} // namespace platform
