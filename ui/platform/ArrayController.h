#pragma once

#include "ui/platform/SortDescriptor.h"

#include <QList>
#include <QObject>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <vector>

namespace platform {

/// What a change description holds.
enum ObservingOption
{
    NewValue = 1, ///< the new value, under "new"
};

/// Is told of changes of an observed value.
class KeyValueObserver
{
public:
    virtual ~KeyValueObserver() = default;

    /// `keyPath` may be null. `change` describes the change as the observer's options asked.
    virtual void observeValueForKeyPath(const QString &keyPath, QObject *object,
                                        const QVariantMap &change, void *context) = 0;
};

/// Stands for NSArrayController: holds records, keeps those that pass a filter in a displayed order
/// and knows which of them are selected.
///
/// Records are added at the end of the displayed order; rearrangeObjects filters and sorts. A
/// rearrangement keeps the selected records selected that are still displayed. Nothing is selected
/// by itself.
class ArrayController : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    /// Adds a record to the content and to the end of the displayed order.
    void addObject(std::shared_ptr<QObject> object);

    /// Replaces the order that the next rearrangement gives.
    void setSortDescriptors(const QList<SortDescriptor> &descriptors);
    const QList<SortDescriptor> &sortDescriptors() const { return m_sortDescriptors; }

    /// Replaces the filter of the next rearrangement, which leaves out the records that it answers
    /// no for; an empty one leaves out none.
    void setFilter(std::function<bool(const QObject &)> filter);

    /// Filters and sorts the records anew. Observers of "selectionIndexes" are notified if the
    /// selected records are fewer, or stand at other places or in another order.
    void rearrangeObjects();

    /// All records, in the order they were added in.
    const QList<std::shared_ptr<QObject>> &content() const { return m_content; }

    /// The displayed records in their order.
    const QList<std::shared_ptr<QObject>> &arrangedObjects() const { return m_arrangedObjects; }

    /// The places of the selected records in the displayed order, ascending.
    const QList<int> &selectionIndexes() const { return m_selectionIndexes; }

    /// Selects the records at these places; places that there are not are left out. Observers
    /// are notified if the set of places changes.
    void setSelectionIndexes(QList<int> indexes);

    /// The selected records in displayed order.
    QList<QObject *> selectedObjects() const;

    /// Notifies `observer` of each change of the value at `keyPath`; "selectionIndexes" is the
    /// one that changes are announced of. `options` are ObservingOption values. The observer is
    /// removed before it dies.
    void addObserver(KeyValueObserver *observer, const QString &keyPath, int options,
                     void *context);
    void removeObserver(KeyValueObserver *observer, const QString &keyPath);

signals:
    void objectAdded();
    void sortDescriptorsChanged();
    /// `otherRecords` tells whether other records may be displayed afterwards, not only the same
    /// ones in another order.
    void aboutToRearrange(bool otherRecords);
    void rearranged(bool otherRecords);
    void selectionIndexesChanged();

private:
    struct Observation
    {
        KeyValueObserver *observer = nullptr;
        QString keyPath;
        int options = 0;
        void *context = nullptr;
    };

    void notify(const Observation &observation);
    void notifySelectionChange();

    QList<std::shared_ptr<QObject>> m_content;
    QList<std::shared_ptr<QObject>> m_arrangedObjects;
    QList<SortDescriptor> m_sortDescriptors;
    std::function<bool(const QObject &)> m_filter;
    bool m_filterChanged = false;
    QList<int> m_selectionIndexes;
    std::vector<Observation> m_observations;
};

} // namespace platform
