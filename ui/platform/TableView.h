#pragma once

#include <QTableView>

class QLabel;

namespace platform {

class ArrayController;
class TableModel;

/// A table of an array controller's records. Rows are selected as wholes, in step with the array
/// controller; a click on a header sorts through it; typing finds a record by the text of the
/// first column.
///
/// The layout declares the columns (see TableColumn) and the text that explains an empty table.
class TableView : public QTableView
{
    Q_OBJECT
    Q_PROPERTY(QStringList columns MEMBER m_columns)
    Q_PROPERTY(QString placeholderText READ placeholderText WRITE setPlaceholderText)

public:
    explicit TableView(QWidget *parent = nullptr);

    /// Shows the records of `controller`, which outlives the view.
    void setArrayController(ArrayController &controller);

    QString placeholderText() const;
    void setPlaceholderText(const QString &text);

    void keyboardSearch(const QString &search) override;

protected:
    QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers) override;
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QList<int> selectedRows() const;
    void readSelection();
    void showSelection();
    void showSortOrder();
    void showPlaceholder();
    void placePlaceholder();

    QStringList m_columns;
    QLabel *m_placeholder; ///< beside the view, as assistive technology sees only cells in it
    ArrayController *m_controller = nullptr;
    TableModel *m_model = nullptr;
    bool m_followsController = false;
};

} // namespace platform
