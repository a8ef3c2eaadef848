#include "ui/platform/SortDescriptor.h"

#include <QObject>
#include <QVariant>

#include <algorithm>
#include <vector>

namespace platform {

int caseInsensitiveCompare(const QString &left, const QString &right)
{
    return QString::compare(left, right, Qt::CaseInsensitive);
}

void sortRecords(QList<std::shared_ptr<QObject>> &records, const QList<SortDescriptor> &descriptors)
{
    // A stable sort by each descriptor, the last one first. The texts are read once, as reading a
    // property by its name costs more than comparing it.
    struct Entry
    {
        QString text;
        std::shared_ptr<QObject> record;
    };
    for (auto descriptor = descriptors.rbegin(); descriptor != descriptors.rend(); ++descriptor) {
        const QByteArray key = descriptor->key.toUtf8();
        std::vector<Entry> entries;
        entries.reserve(size_t(records.size()));
        for (const auto &record : std::as_const(records)) {
            entries.push_back({record->property(key).toString(), record});
        }
        std::stable_sort(entries.begin(), entries.end(), [&](const Entry &a, const Entry &b) {
            const int order = descriptor->comparison(a.text, b.text);
            return descriptor->ascending ? order < 0 : order > 0;
        });
        std::transform(entries.begin(), entries.end(), records.begin(),
                       [](Entry &entry) { return std::move(entry.record); });
    }
}

} // namespace platform
