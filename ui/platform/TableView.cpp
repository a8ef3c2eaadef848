#include "ui/platform/TableView.h"

#include "ui/platform/ArrayController.h"
#include "ui/platform/InputGate.h"
#include "ui/platform/TableModel.h"
#include "ui/platform/TextMarks.h"
#include "ui/platform/WorkObserver.h"

#include <QHeaderView>
#include <QPainter>
#include <QScopedValueRollback>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QStyleOption>
#include <QStyledItemDelegate>

#include <algorithm>
#include <numeric>

namespace platform {

namespace {

/// A quiet outline in the place of an image that is not known yet.
QIcon emptyTile(const QSize &size, const QColor &color)
{
    QPixmap tile(size * 2);
    tile.fill(Qt::transparent);
    tile.setDevicePixelRatio(2);
    QPainter painter(&tile);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(color);
    const QRectF outline = QRectF(QPointF(), QSizeF(size)).adjusted(1.5, 1.5, -1.5, -1.5);
    painter.drawRoundedRect(outline, outline.width() / 4, outline.height() / 4);
    return QIcon(tile);
}

/// Rows have the focus, not cells: the view marks the whole row. A text has one line, whatever it
/// holds, and a path keeps its leading slash at its beginning where the window runs from right to
/// left.
class CellDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override
    {
        QStyledItemDelegate::initStyleOption(option, index);
        option->state &= ~QStyle::State_HasFocus;
        option->text = leftToRightMark + singleLine(option->text);
    }
};

} // namespace

TableView::TableView(QWidget *parent) : QTableView(parent), m_placeholder(new QLabel(parent))
{
    setSelectionBehavior(SelectRows);
    setSelectionMode(ExtendedSelection);
    setEditTriggers(NoEditTriggers);
    setTextElideMode(Qt::ElideMiddle);
    setHorizontalScrollMode(ScrollPerPixel);
    setShowGrid(false);
    setWordWrap(false);
    setTabKeyNavigation(false);
    setItemDelegate(new CellDelegate(this));
    verticalHeader()->hide();
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setMinimumHeight(fontMetrics().height() * 7 / 4);
    horizontalHeader()->setDefaultAlignment(Qt::AlignLeading | Qt::AlignVCenter);
    horizontalHeader()->setStretchLastSection(true);

    m_placeholder->setAlignment(Qt::AlignCenter);
    m_placeholder->setWordWrap(true);
    m_placeholder->setMargin(24);
    m_placeholder->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_placeholder->hide();
}

TableView::~TableView()
{
    delete m_placeholder; // also where both have no parent
}

void TableView::setArrayController(ArrayController &controller)
{
    QList<TableColumn> columns;
    for (const QString &declaration : std::as_const(m_columns)) {
        columns.append(TableColumn::fromDeclaration(declaration));
    }
    m_controller = &controller;
    m_model =
        new TableModel(controller, columns, emptyTile(iconSize(), palette().color(QPalette::Mid)),
                       iconSize(), this);
    setModel(m_model);

    for (const TableColumn &column : std::as_const(columns)) {
        m_leastWidths.append(column.width * fontMetrics().averageCharWidth());
    }
    m_neededWidths = m_leastWidths;
    fitColumns();
    horizontalHeader()->setSortIndicatorShown(true);
    horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    horizontalHeader()->setSectionsClickable(true);
    connect(horizontalHeader(), &QHeaderView::sortIndicatorChanged, m_model, &TableModel::sort);
    connect(m_model, &TableModel::iconsLoaded, viewport(), qOverload<>(&QWidget::update));
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &TableView::readSelection);
    connect(&controller, &ArrayController::selectionIndexesChanged, this,
            &TableView::showSelection);
    // The last one is also resized with the view.
    connect(horizontalHeader(), &QHeaderView::sectionResized, this, [this](int column) {
        const bool byUser = !m_isFittingColumns && column + 1 < m_leastWidths.size();
        m_fitsColumns = m_fitsColumns && !byUser;
    });
    connect(&controller, &ArrayController::sortDescriptorsChanged, this, &TableView::showSortOrder);
    connect(&controller, &ArrayController::rearranged, this, [this] {
        measureColumns();
        showSelection();
        showPlaceholder();
    });
}

void TableView::keyboardSearch(const QString &search)
{
    const QModelIndex current = currentIndex();
    if (current.column() > 0) {
        selectionModel()->setCurrentIndex(current.siblingAtColumn(0),
                                          QItemSelectionModel::NoUpdate);
    }
    QTableView::keyboardSearch(search);
}

QModelIndex TableView::moveCursor(CursorAction action, Qt::KeyboardModifiers modifiers)
{
    // Rows are what is moved between here, not cells.
    const int column = qMax(currentIndex().column(), 0);
    switch (action) {
    case MoveHome:
        return m_model ? m_model->index(0, column) : QModelIndex();
    case MoveEnd:
        return m_model ? m_model->index(m_model->rowCount() - 1, column) : QModelIndex();
    case MoveLeft:
    case MoveRight: {
        const bool forward = (action == MoveRight) != isRightToLeft();
        QScrollBar *const bar = horizontalScrollBar();
        bar->setValue(bar->value() + (forward ? 1 : -1) * bar->singleStep());
        return currentIndex();
    }
    default:
        return QTableView::moveCursor(action, modifiers);
    }
}

void TableView::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    QTableView::currentChanged(current, previous);
    viewport()->update(); // the focus frame spans cells that the base class leaves alone
}

void TableView::paintEvent(QPaintEvent *event)
{
    QTableView::paintEvent(event);
    if (!hasFocus() || !currentIndex().isValid()) {
        return;
    }
    QStyleOptionFocusRect option;
    option.initFrom(this);
    option.rect = visualRect(currentIndex());
    option.rect.setLeft(0);
    option.rect.setRight(viewport()->width() - 1);
    option.state |= QStyle::State_KeyboardFocusChange;
    option.backgroundColor = palette().color(
        selectionModel()->isSelected(currentIndex()) ? QPalette::Highlight : QPalette::Base);
    QPainter painter(viewport());
    style()->drawPrimitive(QStyle::PE_FrameFocusRect, &option, &painter, this);
}

void TableView::resizeEvent(QResizeEvent *event)
{
    QTableView::resizeEvent(event);
    fitColumns();
    placePlaceholder();
}

QList<int> TableView::selectedRows() const
{
    QList<int> rows;
    for (const QItemSelectionRange &range : selectionModel()->selection()) {
        for (int row = range.top(); row <= range.bottom(); ++row) {
            rows.append(row);
        }
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

void TableView::readSelection(const QItemSelection &selected)
{
    if (!m_followsController && InputGate::shared().isWorkUnderWay()) {
        return showSelection(); // assistive technology has selected something: not now
    }
    if (!m_followsController && WorkObserver::isTakingTurn()) {
        m_hasUnreadSelection = true;
        return WorkObserver::doLater(*this, [this] {
            m_hasUnreadSelection = false;
            readSelection(selectionModel()->selection());
        });
    }
    if (!selected.isEmpty()) {
        // Later, when the view itself, if it was it, has moved its current row as well.
        m_newlySelected = selected.first().topLeft();
        QMetaObject::invokeMethod(this, "goToSelection", Qt::QueuedConnection);
    }
    if (!m_followsController) {
        m_controller->setSelectionIndexes(selectedRows());
    }
}

void TableView::goToSelection()
{
    if (m_newlySelected.isValid() && !selectionModel()->isSelected(currentIndex())) {
        selectionModel()->setCurrentIndex(m_newlySelected, QItemSelectionModel::NoUpdate);
    }
}

void TableView::measureColumns()
{
    constexpr int margins = 12; // pixels, beside a text
    for (int column = 0; column < m_neededWidths.size(); ++column) {
        int text = 0;
        for (const QString &longText : m_model->longTexts(column)) {
            text = qMax(text, fontMetrics().horizontalAdvance(singleLine(longText)));
        }
        const int image = m_model->hasImages(column) ? iconSize().width() + margins / 2 : 0;
        m_neededWidths[column] = qMax(m_leastWidths[column], image + text + margins);
    }
    fitColumns();
}

void TableView::fitColumns()
{
    if (!m_fitsColumns) {
        return;
    }
    const QScopedValueRollback fitting(m_isFittingColumns, true);
    int spare =
        viewport()->width() - std::accumulate(m_leastWidths.begin(), m_leastWidths.end(), 0);
    for (int column = 0; column < m_leastWidths.size(); ++column) {
        const int more = qBound(0, spare, m_neededWidths[column] - m_leastWidths[column]);
        setColumnWidth(column, m_leastWidths[column] + more);
        spare -= more;
    }
}

void TableView::showSelection()
{
    if (m_hasUnreadSelection || selectedRows() == m_controller->selectionIndexes()) {
        return;
    }
    const QList<int> &rows = m_controller->selectionIndexes();
    QItemSelection selection;
    for (qsizetype first = 0, next = 0; first < rows.size(); first = next) {
        // Adjacent rows as one range: the selection model compares each with every other.
        do {
            ++next;
        } while (next < rows.size() && rows[next] == rows[next - 1] + 1);
        selection.append({m_model->index(rows[first], 0), m_model->index(rows[next - 1], 0)});
    }
    const QScopedValueRollback following(m_followsController, true);
    selectionModel()->select(selection,
                             QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void TableView::showSortOrder()
{
    if (m_controller->sortDescriptors().isEmpty()) {
        return;
    }
    const SortDescriptor &descriptor = m_controller->sortDescriptors().first();
    const QSignalBlocker silence(horizontalHeader());
    horizontalHeader()->setSortIndicator(m_model->columnOfKey(descriptor.key),
                                         descriptor.ascending ? Qt::AscendingOrder
                                                              : Qt::DescendingOrder);
    horizontalHeader()->viewport()->update();
}

void TableView::showPlaceholder()
{
    m_placeholder->setText(m_controller->content().isEmpty() ? m_placeholderText : m_noMatchText);
    m_placeholder->setVisible(m_model->rowCount() == 0);
    placePlaceholder();
}

void TableView::placePlaceholder()
{
    m_placeholder->setGeometry({mapToParent(viewport()->pos()), viewport()->size()});
    m_placeholder->raise();
}

} // namespace platform
