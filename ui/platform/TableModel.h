#pragma once

#include <QAbstractTableModel>
#include <QByteArray>
#include <QIcon>
#include <QList>

namespace platform {

class ArrayController;

/// What a column of a table shows of each record.
struct TableColumn
{
    QString title;
    QByteArray textKey;
    QByteArray imageKey; ///< empty for a column without images
    int width = 0;       ///< at the start, in characters of average width

    /// From "title|text key|image key|width", as a layout declares it.
    static TableColumn fromDeclaration(const QString &declaration);
};

/// The arranged records of an array controller as rows. It follows additions, rearrangements and
/// the records' own notifications, and sorts through the array controller.
class TableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    /// `controller` outlives the model. `placeholder` is shown for an image that is unset.
    TableModel(ArrayController &controller, const QList<TableColumn> &columns,
               const QIcon &placeholder, QObject *parent);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    void sort(int column, Qt::SortOrder order) override;

    /// The column that shows the property `key` as text, or -1.
    int columnOfKey(const QString &key) const;

private slots:
    void announceRecordChange();

private:
    void appendRow();
    void rememberPersistentRecords();
    void movePersistentIndexes();

    ArrayController &m_controller;
    QList<TableColumn> m_columns;
    QIcon m_placeholder;
    int m_rowCount = 0;
    QModelIndexList m_persistentIndexes;
    QList<QObject *> m_persistentRecords;
};

} // namespace platform
