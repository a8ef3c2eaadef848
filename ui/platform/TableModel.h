#pragma once

#include <QAbstractTableModel>
#include <QByteArray>
#include <QIcon>
#include <QList>

namespace platform {

class ArrayController;
class IconLoader;

/// What a column of a table shows of each record.
struct TableColumn
{
    QString title;
    QByteArray textKey;
    QByteArray imageKey; ///< empty for a column without images
    QByteArray fileKey;  ///< of the path of the file whose icon stands in for an unset image
    int width = 0;       ///< at least, in characters of average width

    /// From "title|text key|image key|file key|width", as a layout declares it.
    static TableColumn fromDeclaration(const QString &declaration);
};

/// The arranged records of an array controller as rows. It follows additions, rearrangements and
/// the records' own notifications, and sorts through the array controller.
class TableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    /// `controller` outlives the model. `placeholder` is shown for an image that is unset, as long
    /// as no icon of `iconSize` has been loaded in its place.
    TableModel(ArrayController &controller, const QList<TableColumn> &columns,
               const QIcon &placeholder, QSize iconSize, QObject *parent);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    void sort(int column, Qt::SortOrder order) override;

    /// The column that shows the property `key` as text, or -1.
    int columnOfKey(const QString &key) const;

    bool hasImages(int column) const { return !m_columns[column].imageKey.isEmpty(); }

    /// Some of the column's texts that have more characters than most, but not the longest tenth.
    QStringList longTexts(int column) const;

signals:
    /// Some more icons can be shown; whoever draws rows asks anew for those that it draws.
    void iconsLoaded();

private slots:
    void announceRecordChange();

private:
    QIcon image(const QObject &record, const TableColumn &column) const;
    void appendRow();
    void beginRearrangement(bool otherRecords);
    void endRearrangement(bool otherRecords);
    void rememberPersistentRecords();
    void movePersistentIndexes();

    ArrayController &m_controller;
    QList<TableColumn> m_columns;
    QIcon m_placeholder;
    IconLoader *m_iconLoader;
    int m_rowCount = 0;
    QModelIndexList m_persistentIndexes;
    QList<QObject *> m_persistentRecords;
};

} // namespace platform
