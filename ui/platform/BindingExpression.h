#pragma once

#include <QByteArrayList>
#include <QList>
#include <QObject>
#include <QVariant>

namespace platform {

class ArrayController;

/// What a layout binds to: a key path from an array controller, such as
/// "selection.prefs.backupDate", or a condition of several, such as
/// "selection.prefs.found & !selection.prefs.backedUp".
///
/// "selection" is the first selected record, "hasMultipleSelection" whether there are several.
/// Every further key is a property.
class BindingExpression
{
public:
    explicit BindingExpression(const QString &text);

    /// The value of a single key path; invalid when some object on the way is missing.
    QVariant value(const ArrayController &controller) const;

    /// Whether every term holds. A value that is unset, no or no object does not.
    bool isTrue(const ArrayController &controller) const;

    /// The objects whose properties the expression reads.
    QObjectList objects(const ArrayController &controller) const;

    /// Whether it reads the selected record.
    bool needsSelection() const;

private:
    struct Term
    {
        QByteArrayList keys;
        bool negated = false;
    };

    QList<Term> m_terms;
};

} // namespace platform
