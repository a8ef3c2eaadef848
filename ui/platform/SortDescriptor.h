#pragma once

#include <QList>
#include <QString>

#include <memory>

class QObject;

namespace platform {

/// How two texts are compared: less than 0, 0 or greater than 0 for before, equal and after.
using Comparison = int (*)(const QString &left, const QString &right);

/// Letter by letter, without regard to case; no locale is consulted.
int caseInsensitiveCompare(const QString &left, const QString &right);

/// Stands for NSSortDescriptor: orders records by the text of a named property.
struct SortDescriptor
{
    QString key;
    bool ascending = true;
    Comparison comparison = caseInsensitiveCompare;
};

/// Sorts records by the first descriptor, those that compare equal by the next, and so on.
/// Records that are equal by all of them keep their order.
void sortRecords(QList<std::shared_ptr<QObject>> &records,
                 const QList<SortDescriptor> &descriptors);

} // namespace platform
