#include "ui/platform/TableView.h"
#include "tests/support/TestVolume.h"
#include "ui/platform/ArrayController.h"
#include "ui/platform/ElidedLabel.h"
#include "ui/platform/FilterField.h"
#include "ui/platform/WorkObserver.h"

#include <QAction>
#include <QDir>
#include <QHeaderView>
#include <QHelpEvent>
#include <QLabel>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QToolTip>
#include <QVBoxLayout>

using platform::ArrayController;
using platform::FilterField;
using platform::TableView;

/// A table of an array controller's records, and the field that filters them.
class TableViewTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_pane.reset(); }
    void order();
    void selection();
    void filter();
    void selectionFromOutside();
    void selectionInTheMidstOfWork();
    void textsAreShownAsTheyStand();
    void iconsOfWhatIsDrawn();

private:
    /// Each is an action, which has an icon and tells when that changes.
    void addRecords(const QStringList &names)
    {
        for (const QString &name : names) {
            auto record = std::make_shared<QAction>();
            record->setObjectName(name);
            record->setProperty("length", name.size());
            m_controller->addObject(record);
        }
    }
    void sort(const QList<platform::SortDescriptor> &descriptors)
    {
        m_controller->setSortDescriptors(descriptors);
        m_controller->rearrangeObjects();
    }
    QStringList names() const
    {
        QStringList names;
        for (const auto &record : m_controller->arrangedObjects()) {
            names.append(record->objectName());
        }
        return names;
    }
    /// What the table shows as selected; the array controller must agree.
    QStringList selectedNames() const
    {
        QList<int> rows;
        QStringList names;
        for (int row = 0; row < m_table->model()->rowCount(); ++row) {
            if (m_table->selectionModel()->isRowSelected(row)) {
                rows.append(row);
                names.append(m_table->model()->index(row, 0).data().toString());
            }
        }
        return rows == m_controller->selectionIndexes() ? names : QStringList("another selection");
    }
    QRect cell(int row, int column = 0) const
    {
        return m_table->visualRect(m_table->model()->index(row, column));
    }

    TestVolume m_volume;
    std::unique_ptr<ArrayController> m_controller;
    std::unique_ptr<QWidget> m_pane;
    FilterField *m_field = nullptr;
    TableView *m_table = nullptr;
};

void TableViewTest::init()
{
    m_controller = std::make_unique<ArrayController>();
    m_pane = std::make_unique<QWidget>();
    m_field = new FilterField(m_pane.get());
    m_field->setProperty("keys", QStringList({"objectName", "other"}));
    m_field->setArrayController(*m_controller);
    m_table = new TableView(m_pane.get());
    m_table->setProperty("columns", QStringList({"Name|objectName|icon|path|5", "Length|length"}));
    m_table->setProperty("noMatchText", "Nothing matches");
    m_table->setIconSize({16, 16});
    m_table->setArrayController(*m_controller);
    auto *const layout = new QVBoxLayout(m_pane.get());
    layout->addWidget(m_field);
    layout->addWidget(m_table);
    m_pane->resize(400, 300);
    m_pane->show();
    QVERIFY(QTest::qWaitForWindowActive(m_pane.get()));
}

void TableViewTest::order()
{
    QStringList equal; // but for case; enough of them that an unstable sort would mix them
    for (int i = 0; i < 40; ++i) {
        equal.append(i % 3 == 0 ? "SAME" : "same");
    }
    addRecords(QStringList("Zulu") + equal + QStringList({"alpha", "Tom"}));
    const QHeaderView *const header = m_table->horizontalHeader();
    QCOMPARE(header->sortIndicatorSection(), -1); // not sorted by anything yet
    sort({{"objectName", true, [](const QString &a, const QString &b) { return a.compare(b); }}});
    QCOMPARE(names().first(), "SAME");
    sort({{"objectName"}}); // what was added, not what was displayed
    QCOMPARE(names(), QStringList("alpha") + equal + QStringList({"Tom", "Zulu"}));
    sort({{"objectName", false}});
    QCOMPARE(names(), QStringList({"Zulu", "Tom"}) + equal + QStringList("alpha"));
    QCOMPARE(header->sortIndicatorOrder(), Qt::DescendingOrder);
    for (const QString first : {"Tom", "alpha"}) { // the shortest, then the longest
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                          {header->sectionPosition(1) + 9, header->height() / 2});
        QCOMPARE(names().first(), first);
    }
    QCOMPARE(header->sortIndicatorSection(), 1);
    sort({{"length", false}, {"objectName", false}});
    QCOMPARE(names(), QStringList({"alpha", "Zulu"}) + equal + QStringList("Tom"));
}

void TableViewTest::selection()
{
    addRecords({"gamma", "Beta", "alpha", "ALPHA", "beta"});
    QList<QList<int>> told;
    connect(m_controller.get(), &ArrayController::selectionIndexesChanged, this,
            [&] { told.append(m_controller->selectionIndexes()); });
    m_controller->setSelectionIndexes({4, 0, 4, 7, -1});
    QCOMPARE(selectedNames(), QStringList({"gamma", "beta"}));
    m_controller->setSelectionIndexes({0, 4});
    sort({{"objectName"}});
    QCOMPARE(selectedNames(), QStringList({"beta", "gamma"}));
    m_controller->rearrangeObjects();
    m_table->selectAll();
    sort({{"objectName", false}}); // the places are the same, the topmost is another
    m_table->clearSelection();
    QCOMPARE(selectedNames(), QStringList());
    QCOMPARE(told, QList<QList<int>>({{0, 4}, {3, 4}, {0, 1, 2, 3, 4}, {0, 1, 2, 3, 4}, {}}));

    m_table->setFocus();
    m_table->setCurrentIndex({});
    const auto press = [&](Qt::Key key, Qt::KeyboardModifiers modifiers = {}) {
        QTest::keyClick(m_table, key, modifiers);
        return m_controller->selectionIndexes();
    };
    QCOMPARE(press(Qt::Key_Down), QList<int>({0}));
    QCOMPARE(press(Qt::Key_End), QList<int>({4}));
    QCOMPARE(press(Qt::Key_Home), QList<int>({0}));
    QCOMPARE(press(Qt::Key_Right), QList<int>({0}));
    QCOMPARE(press(Qt::Key_Down, Qt::ShiftModifier), QList<int>({0, 1}));
    QCOMPARE(press(Qt::Key_End, Qt::ShiftModifier), QList<int>({0, 1, 2, 3, 4}));
    // Typing finds by name, wherever the mouse has clicked before.
    QTest::mouseClick(m_table->viewport(), Qt::LeftButton, {}, cell(4, 1).center());
    QCOMPARE(selectedNames(), QStringList("ALPHA"));
    QTest::keyClicks(m_table, "gam");
    QCOMPARE(selectedNames(), QStringList("gamma"));
}

void TableViewTest::filter()
{
    addRecords({"Kitchen", QString::fromUtf8("Cafe\u0301 Gro\u0308\u00dfe"), "almanac", "ALMA"});
    m_controller->arrangedObjects()[0]->setProperty("other", "vnd.sample.Uhr");
    sort({{"objectName"}});
    const QStringList all = names();
    const auto type = [&](const QString &text) {
        m_field->startFiltering();
        QTest::keyClicks(m_field, text);
        return m_table->model()->rowCount() == names().size() ? names() : QStringList("no rows");
    };
    const auto *const explanation = m_pane->findChild<QLabel *>();
    m_controller->setSelectionIndexes({0, 3});
    QCOMPARE(type(" ALM "), QStringList({"ALMA", "almanac"}));
    QCOMPARE(selectedNames(), QStringList("ALMA"));
    QCOMPARE(type("cafe grosse"), all.mid(2, 1));
    QCOMPARE(selectedNames(), QStringList()); // what is hidden is not selected
    QCOMPARE(type("uhr"), QStringList("Kitchen"));
    QTest::keyClick(m_field, Qt::Key_Down);
    QVERIFY(m_table->hasFocus());
    QCOMPARE(selectedNames(), QStringList("Kitchen"));
    QTest::keyClick(m_table, Qt::Key_Escape);
    QCOMPARE(names(), all);
    QCOMPARE(selectedNames(), QStringList("Kitchen"));
    QVERIFY(m_table->hasFocus());
    QVERIFY(!explanation->isVisible());
    QCOMPARE(type("xyz"), QStringList());
    QVERIFY(explanation->isVisible());
    QCOMPARE(explanation->text(), "Nothing matches");
    QTest::keyClick(m_field, Qt::Key_Escape);
    QVERIFY(!explanation->isVisible() && m_field->hasFocus());
    QTest::keyClick(m_field, Qt::Key_Escape);
    QVERIFY(m_table->hasFocus());
}

void TableViewTest::selectionFromOutside()
{
    for (int i = 0; i < 100; ++i) {
        addRecords({QString::number(i)});
    }
    const auto isSeen = [&](int row) { return m_table->rect().contains(cell(row)); };
    // As assistive technology selects, which leaves the current row where it is.
    m_table->selectionModel()->select(m_table->model()->index(70, 0),
                                      QItemSelectionModel::ClearAndSelect |
                                          QItemSelectionModel::Rows);
    QTRY_VERIFY(isSeen(70));
    QTest::keyClick(m_table, Qt::Key_Down);
    QCOMPARE(selectedNames(), QStringList("71"));
    // More rows beside one that is seen and current move nothing.
    m_table->selectAll();
    QCoreApplication::processEvents();
    QVERIFY(isSeen(71) && !isSeen(0));
}

// Assistive technology selects another record while the details of the first are looked for.
void TableViewTest::selectionInTheMidstOfWork()
{
    struct LongLook : platform::KeyValueObserver
    {
        explicit LongLook(TableView &table) : m_table(table) {}
        void observeValueForKeyPath(const QString &, QObject *, const QVariantMap &,
                                    void *) override
        {
            const platform::Work work(platform::Progress::Activity::Measuring);
            QTimer::singleShot(0, &m_table, [this] { m_table.selectRow(2); });
            while (!m_table.selectionModel()->isRowSelected(2)) {
                platform::Work::wait();
            }
        }
        TableView &m_table;
    };
    const platform::WorkObserver observer;
    LongLook look(*m_table);
    addRecords({"a", "b", "c"});
    sort({});
    m_controller->addObserver(&look, "selectionIndexes", platform::NewValue, nullptr);
    m_table->selectRow(0);
    QTRY_COMPARE(selectedNames(), QStringList("c"));
    m_controller->removeObserver(&look, "selectionIndexes");
}

void TableViewTest::textsAreShownAsTheyStand()
{
    const QString markup = "<img src='/etc/passwd'>\n";
    addRecords({"a\nb\tc", "a b c", markup});
    m_controller->rearrangeObjects();
    const auto picture = [&](int row) { return m_table->viewport()->grab(cell(row)).toImage(); };
    QCOMPARE(picture(0), picture(1));
    QVERIFY(picture(0) != picture(2));
    const QString toolTip = m_table->model()->index(2, 0).data(Qt::ToolTipRole).toString();
    QVERIFY(toolTip.contains("passwd") && !toolTip.contains("<img"));
    platform::ElidedLabel label;
    label.setText(markup);
    QHelpEvent pointed(QEvent::ToolTip, {}, {});
    QCoreApplication::sendEvent(&label, &pointed);
    QVERIFY(QToolTip::text().contains("passwd") && !QToolTip::text().contains("<img"));
}

void TableViewTest::iconsOfWhatIsDrawn()
{
    constexpr int count = 300;
    QPixmap image(32, 32);
    image.fill(Qt::red);
    for (int row = 0; row < count; ++row) {
        const QString path = QStringLiteral("/%1.app").arg(row);
        m_volume.writeBundle(path, {{"CFBundleIconFile", "icon.png"}});
        QDir().mkpath(m_volume.host(path + "/Contents/Resources"));
        QVERIFY(image.save(m_volume.host(path + "/Contents/Resources/icon.png")));
        addRecords({path});
        m_controller->content().last()->setProperty("path", path);
    }
    const auto isOnScreen = [&](int row) {
        const QPoint place =
            m_table->viewport()->mapTo(m_pane.get(), cell(row).topLeft() + QPoint(10, 10));
        const QPixmap screen = m_pane->screen()->grabWindow(m_pane->winId());
        return screen.toImage().pixelColor(place) == QColor(Qt::red);
    };
    const auto color = [&](int row) {
        const auto icon = m_table->model()->index(row, 0).data(Qt::DecorationRole).value<QIcon>();
        return icon.pixmap(16).toImage().pixelColor(8, 8);
    };
    QTRY_VERIFY(isOnScreen(1) && isOnScreen(4));
    m_table->scrollToBottom();
    QTRY_VERIFY(isOnScreen(count - 1) && isOnScreen(count - 4));
    QVERIFY(color(1) == Qt::red && color(count / 2) != Qt::red); // which was never drawn

    // What a record has of its own goes first.
    const QSignalSpy changes(m_table->model(), &QAbstractItemModel::dataChanged);
    image.fill(Qt::blue);
    m_controller->content().last()->setProperty("icon", QIcon(image));
    QVERIFY(changes.count() == 1 && changes[0][0].toModelIndex().row() == count - 1);
    QVERIFY(color(count - 1) == Qt::blue);
}

QTEST_MAIN(TableViewTest)
#include "TableViewTest.moc"
