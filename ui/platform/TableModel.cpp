#include "ui/platform/TableModel.h"

#include "ui/platform/ArrayController.h"
#include "ui/platform/IconLoader.h"
#include "ui/platform/PlainToolTip.h"

#include <QHash>
#include <QMetaMethod>
#include <QMetaProperty>

#include <algorithm>

namespace platform {

TableColumn TableColumn::fromDeclaration(const QString &declaration)
{
    const QStringList parts = declaration.split(u'|');
    return {parts.value(0), parts.value(1).toUtf8(), parts.value(2).toUtf8(),
            parts.value(3).toUtf8(), parts.value(4).toInt()};
}

TableModel::TableModel(ArrayController &controller, const QList<TableColumn> &columns,
                       const QIcon &placeholder, QSize iconSize, QObject *parent)
    : QAbstractTableModel(parent)
    , m_controller(controller)
    , m_columns(columns)
    , m_placeholder(placeholder)
    , m_iconLoader(new IconLoader(iconSize, this))
{
    connect(m_iconLoader, &IconLoader::loaded, this, &TableModel::iconsLoaded);
    connect(&controller, &ArrayController::objectAdded, this, &TableModel::appendRow);
    connect(&controller, &ArrayController::aboutToRearrange, this, &TableModel::beginRearrangement);
    connect(&controller, &ArrayController::rearranged, this, &TableModel::endRearrangement);
}

int TableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rowCount;
}

int TableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_columns.size());
}

QVariant TableModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid)) {
        return {};
    }
    const QObject &record = *m_controller.arrangedObjects()[index.row()];
    const TableColumn &column = m_columns[index.column()];
    switch (role) {
    case Qt::DisplayRole:
        return record.property(column.textKey);
    case Qt::ToolTipRole:
        return plainToolTip(record.property(column.textKey).toString());
    case Qt::DecorationRole:
        return column.imageKey.isEmpty() ? QVariant() : image(record, column);
    default:
        return {};
    }
}

QIcon TableModel::image(const QObject &record, const TableColumn &column) const
{
    auto icon = record.property(column.imageKey).value<QIcon>();
    if (icon.isNull() && !column.fileKey.isEmpty()) {
        icon = m_iconLoader->icon(record.property(column.fileKey).toString());
    }
    return icon.isNull() ? m_placeholder : icon;
}

QVariant TableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole) {
        return m_columns[section].title;
    }
    return QAbstractTableModel::headerData(section, orientation, role);
}

void TableModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0) {
        return;
    }
    m_controller.setSortDescriptors(
        {{QString::fromUtf8(m_columns[column].textKey), order == Qt::AscendingOrder}});
    m_controller.rearrangeObjects();
}

int TableModel::columnOfKey(const QString &key) const
{
    const auto column =
        std::find_if(m_columns.begin(), m_columns.end(), [&](const TableColumn &candidate) {
            return candidate.textKey == key.toUtf8();
        });
    return column == m_columns.end() ? -1 : int(column - m_columns.begin());
}

QStringList TableModel::longTexts(int column) const
{
    constexpr qsizetype number = 32;
    QStringList texts;
    texts.reserve(m_controller.content().size());
    for (const auto &record : m_controller.content()) {
        texts.append(record->property(m_columns[column].textKey).toString());
    }
    const auto longest = std::min(texts.size(), texts.size() / 10 + number);
    std::partial_sort(texts.begin(), texts.begin() + longest, texts.end(),
                      [](const QString &a, const QString &b) { return a.size() > b.size(); });
    return texts.mid(texts.size() / 10, number);
}

void TableModel::appendRow()
{
    beginInsertRows({}, m_rowCount, m_rowCount);
    const QObject *const record = m_controller.arrangedObjects().last().get();
    const QMetaMethod announce =
        metaObject()->method(metaObject()->indexOfSlot("announceRecordChange()"));
    for (const TableColumn &column : std::as_const(m_columns)) {
        for (const QByteArray &key : {column.textKey, column.imageKey}) {
            const int property = record->metaObject()->indexOfProperty(key);
            if (property >= 0) {
                connect(record, record->metaObject()->property(property).notifySignal(), this,
                        announce);
            }
        }
    }
    ++m_rowCount;
    endInsertRows();
}

void TableModel::announceRecordChange()
{
    const auto &records = m_controller.arrangedObjects();
    const auto record = std::find_if(records.begin(), records.end(), [this](const auto &candidate) {
        return candidate.get() == sender();
    });
    if (record != records.end()) {
        const int row = int(record - records.begin());
        emit dataChanged(index(row, 0), index(row, columnCount() - 1));
    }
}

void TableModel::beginRearrangement(bool otherRecords)
{
    if (otherRecords) {
        beginResetModel();
        return;
    }
    emit layoutAboutToBeChanged();
    rememberPersistentRecords();
}

void TableModel::endRearrangement(bool otherRecords)
{
    if (otherRecords) {
        m_rowCount = int(m_controller.arrangedObjects().size());
        endResetModel();
        return;
    }
    movePersistentIndexes();
    emit layoutChanged();
}

void TableModel::rememberPersistentRecords()
{
    m_persistentIndexes = persistentIndexList();
    m_persistentRecords.clear();
    for (const QModelIndex &index : std::as_const(m_persistentIndexes)) {
        m_persistentRecords.append(m_controller.arrangedObjects()[index.row()].get());
    }
}

void TableModel::movePersistentIndexes()
{
    QHash<const QObject *, int> rows;
    for (int row = 0; row < m_rowCount; ++row) {
        rows.insert(m_controller.arrangedObjects()[row].get(), row);
    }
    QModelIndexList moved;
    for (int i = 0; i < m_persistentIndexes.size(); ++i) {
        moved.append(index(rows.value(m_persistentRecords[i]), m_persistentIndexes[i].column()));
    }
    changePersistentIndexList(m_persistentIndexes, moved);
}

} // namespace platform
