#include "ui/platform/BindingExpression.h"

#include "ui/platform/ArrayController.h"

#include <QDateTime>

#include <algorithm>

namespace platform {

namespace {

/// The value of the first key, which the array controller itself answers.
QVariant rootValue(const QByteArray &root, const ArrayController &controller)
{
    if (root == "selection") {
        const QObjectList selected = controller.selectedObjects();
        return selected.isEmpty() ? QVariant() : QVariant::fromValue(selected.first());
    }
    if (root == "hasMultipleSelection") {
        return controller.selectionIndexes().size() > 1;
    }
    return {};
}

QVariant follow(QByteArrayList keys, const ArrayController &controller, QObjectList *visited)
{
    QVariant value = rootValue(keys.takeFirst(), controller);
    for (const QByteArray &key : std::as_const(keys)) {
        QObject *const object = value.value<QObject *>();
        if (!object) {
            return {};
        }
        if (visited) {
            visited->append(object);
        }
        value = object->property(key);
    }
    return value;
}

bool holds(const QVariant &value)
{
    if (!value.isValid()) {
        return false;
    }
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::QString:
        return !value.toString().isNull();
    case QMetaType::QDateTime:
        return value.toDateTime().isValid();
    default:
        return !value.isNull();
    }
}

} // namespace

BindingExpression::BindingExpression(const QString &text)
{
    for (const QString &part : text.split(u'&')) {
        QString path = part.trimmed();
        const bool negated = path.startsWith(u'!');
        if (negated) {
            path.remove(0, 1);
        }
        m_terms.append({path.toUtf8().split('.'), negated});
    }
}

QVariant BindingExpression::value(const ArrayController &controller) const
{
    return follow(m_terms.first().keys, controller, nullptr);
}

bool BindingExpression::isTrue(const ArrayController &controller) const
{
    return std::all_of(m_terms.begin(), m_terms.end(), [&](const Term &term) {
        return holds(follow(term.keys, controller, nullptr)) != term.negated;
    });
}

QObjectList BindingExpression::objects(const ArrayController &controller) const
{
    QObjectList visited;
    for (const Term &term : m_terms) {
        follow(term.keys, controller, &visited);
    }
    return visited;
}

bool BindingExpression::needsSelection() const
{
    return std::any_of(m_terms.begin(), m_terms.end(),
                       [](const Term &term) { return term.keys.first() == "selection"; });
}

} // namespace platform
