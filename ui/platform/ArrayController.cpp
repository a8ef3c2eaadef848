#include "ui/platform/ArrayController.h"

#include <QSet>

#include <algorithm>

namespace platform {

namespace {

const QString selectionKeyPath = QStringLiteral("selectionIndexes");

} // namespace

void ArrayController::addObject(std::shared_ptr<QObject> object)
{
    m_content.append(object);
    m_arrangedObjects.append(std::move(object));
    emit objectAdded();
}

void ArrayController::setSortDescriptors(const QList<SortDescriptor> &descriptors)
{
    m_sortDescriptors = descriptors;
    emit sortDescriptorsChanged();
}

void ArrayController::setFilter(std::function<bool(const QObject &)> filter)
{
    m_filter = std::move(filter);
    m_filterChanged = true;
}

void ArrayController::rearrangeObjects()
{
    // A record that was added since the last time is displayed, but may not pass the filter.
    const bool otherRecords = std::exchange(m_filterChanged, false) || m_filter;
    emit aboutToRearrange(otherRecords);
    const QList<QObject *> selection = selectedObjects();
    const QSet<QObject *> selected(selection.begin(), selection.end());
    // From the content, so that records that compare equal keep the order they were added in.
    m_arrangedObjects = m_content;
    if (m_filter) {
        m_arrangedObjects.removeIf([this](const auto &record) { return !m_filter(*record); });
    }
    sortRecords(m_arrangedObjects, m_sortDescriptors);

    QList<int> indexes;
    for (int i = 0; i < m_arrangedObjects.size() && !selected.isEmpty(); ++i) {
        if (selected.contains(m_arrangedObjects[i].get())) {
            indexes.append(i);
        }
    }
    const QList<int> oldIndexes = std::exchange(m_selectionIndexes, indexes);
    // With all records selected the places stay the same, but the topmost record may be another.
    const bool moved = indexes != oldIndexes || selectedObjects() != selection;
    emit rearranged(otherRecords);
    if (moved) {
        notifySelectionChange();
    }
}

void ArrayController::setSelectionIndexes(QList<int> indexes)
{
    indexes.removeIf([this](int index) { return index < 0 || index >= m_arrangedObjects.size(); });
    std::sort(indexes.begin(), indexes.end());
    indexes.erase(std::unique(indexes.begin(), indexes.end()), indexes.end());
    if (indexes == m_selectionIndexes) {
        return;
    }
    m_selectionIndexes = indexes;
    notifySelectionChange();
}

QList<QObject *> ArrayController::selectedObjects() const
{
    QList<QObject *> objects;
    objects.reserve(m_selectionIndexes.size());
    for (const int index : m_selectionIndexes) {
        objects.append(m_arrangedObjects[index].get());
    }
    return objects;
}

void ArrayController::addObserver(KeyValueObserver *observer, const QString &keyPath, int options,
                                  void *context)
{
    m_observations.push_back({observer, keyPath, options, context});
}

void ArrayController::removeObserver(KeyValueObserver *observer, const QString &keyPath)
{
    std::erase_if(m_observations, [&](const Observation &observation) {
        return observation.observer == observer && observation.keyPath == keyPath;
    });
}

void ArrayController::notify(const Observation &observation)
{
    QVariantMap change;
    if (observation.options & NewValue) {
        change.insert(QStringLiteral("new"), QVariant::fromValue(m_selectionIndexes));
    }
    observation.observer->observeValueForKeyPath(observation.keyPath, this, change,
                                                 observation.context);
}

void ArrayController::notifySelectionChange()
{
    const std::vector<Observation> observations = m_observations;
    for (const Observation &observation : observations) {
        if (observation.keyPath == selectionKeyPath) {
            notify(observation);
        }
    }
    emit selectionIndexesChanged();
}

} // namespace platform
