#pragma once

#include <QLabel>
#include <QPersistentModelIndex>
#include <QPointer>
#include <QTableView>

namespace platform {

class ArrayController;
class TableModel;

/// A table of an array controller's records. Rows are selected as wholes, in step with the array
/// controller; a click on a header sorts through it; typing finds a record by the text of the
/// first column. A row that is selected by other means than the view's is scrolled to.
///
/// The columns are as wide as nine of ten of their texts need, in turn as far as the view's width
/// allows, and the last one takes the rest, until the user sets a width.
///
/// The layout declares the columns (see TableColumn), and the texts that explain an empty table
/// and one whose records are all left out by a filter.
class TableView : public QTableView
{
    Q_OBJECT
    Q_PROPERTY(QStringList columns MEMBER m_columns)
    Q_PROPERTY(QString placeholderText MEMBER m_placeholderText)
    Q_PROPERTY(QString noMatchText MEMBER m_noMatchText)

public:
    explicit TableView(QWidget *parent = nullptr);
    ~TableView() override;

    /// Shows the records of `controller`, which outlives the view.
    void setArrayController(ArrayController &controller);

    void keyboardSearch(const QString &search) override;

protected:
    QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override;
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QList<int> selectedRows() const;
    void readSelection(const QItemSelection &selected);
    Q_INVOKABLE void goToSelection();
    void measureColumns();
    void fitColumns();
    void showSelection();
    void showSortOrder();
    void showPlaceholder();
    void placePlaceholder();

    QStringList m_columns;
    QString m_placeholderText;
    QString m_noMatchText;
    QPointer<QLabel> m_placeholder; ///< beside the view, in which only cells are seen
    ArrayController *m_controller = nullptr;
    TableModel *m_model = nullptr;
    bool m_followsController = false;
    bool m_hasUnreadSelection = false; ///< which assistive technology made in the midst of work
    QPersistentModelIndex m_newlySelected;
    QList<int> m_leastWidths;  ///< of the columns, pixels
    QList<int> m_neededWidths; ///< likewise
    bool m_fitsColumns = true;
    bool m_isFittingColumns = false;
};

} // namespace platform
