#include "ui/platform/BindingExpression.h"

#include "ui/platform/ArrayController.h"

#include <algorithm>

namespace platform {

namespace {

QVariant rootValue(const QByteArray &root, const BindingRoots &roots)
{
    if (root == "selection") {
        const QObjectList selected = roots.records.selectedObjects();
        return selected.isEmpty() ? QVariant() : QVariant::fromValue(selected.first());
    }
    if (root == "hasMultipleSelection") {
        return roots.records.selectionIndexes().size() > 1;
    }
    if (root == "disk") {
        return QVariant::fromValue(&roots.disk);
    }
    return {};
}

QVariant follow(QByteArrayList keys, const BindingRoots &roots, QObjectList *visited)
{
    QVariant value = rootValue(keys.takeFirst(), roots);
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

QVariant BindingExpression::value(const BindingRoots &roots) const
{
    return follow(m_terms.first().keys, roots, nullptr);
}

bool BindingExpression::isTrue(const BindingRoots &roots) const
{
    return std::all_of(m_terms.begin(), m_terms.end(), [&](const Term &term) {
        return holds(follow(term.keys, roots, nullptr)) != term.negated;
    });
}

QObjectList BindingExpression::objects(const BindingRoots &roots) const
{
    QObjectList visited;
    for (const Term &term : m_terms) {
        follow(term.keys, roots, &visited);
    }
    return visited;
}

bool BindingExpression::needsSelection() const
{
    return std::any_of(m_terms.begin(), m_terms.end(),
                       [](const Term &term) { return term.keys.first() == "selection"; });
}

} // namespace platform
