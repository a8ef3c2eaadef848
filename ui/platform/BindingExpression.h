#pragma once

#include <QByteArrayList>
#include <QList>
#include <QObject>
#include <QVariant>

namespace platform {

class ArrayController;

/// What the key paths of a layout's bindings start from.
struct BindingRoots
{
    const ArrayController &records;
    QObject &disk;
};

/// What a layout binds to: a key path, such as "selection.prefs.backupDate", or a condition of
/// several, such as "selection.prefs.found & !selection.prefs.backedUp".
///
/// "selection" is the first selected record, "hasMultipleSelection" whether there are several,
/// "disk" the DiskStatus. Every further key is a property.
class BindingExpression
{
public:
    explicit BindingExpression(const QString &text);

    /// The value of a single key path; invalid when some object on the way is missing.
    QVariant value(const BindingRoots &roots) const;

    /// Whether every term holds. A value that is unset, no or no object does not.
    bool isTrue(const BindingRoots &roots) const;

    /// The objects whose properties the expression reads.
    QObjectList objects(const BindingRoots &roots) const;

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
