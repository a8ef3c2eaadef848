#include "ui/platform/ArrayController.h"
#include "ui/platform/TableView.h"

#include <QHeaderView>
#include <QTest>

using platform::ArrayController;
using platform::TableView;

namespace {

/// Keeps what it was told last, and how often it was told.
class SelectionObserver : public platform::KeyValueObserver
{
public:
    void observeValueForKeyPath(const QString &keyPath, QObject *, const QVariantMap &change,
                                void *context) override
    {
        ++times;
        last = {keyPath, change.value("new").value<QList<int>>(), context};
    }
    int times = 0;
    std::tuple<QString, QList<int>, void *> last;
};

} // namespace

class ArrayControllerTest : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_controller = std::make_unique<ArrayController>();
        addRecords({"gamma", "Beta", "alpha", "ALPHA", "beta"});
    }
    void arrangement();
    void selection();
    void observersAreToldOfChangesOnly();
    void tableSortsAndKeepsTheSelection();
    void tableKeyboard();

private:
    void addRecords(const QStringList &names)
    {
        for (const QString &name : names) {
            auto record = std::make_shared<QObject>();
            record->setObjectName(name);
            record->setProperty("length", name.size());
            m_controller->addObject(record);
        }
    }
    QStringList names() const
    {
        QStringList names;
        for (const auto &record : m_controller->arrangedObjects()) {
            names.append(record->objectName());
        }
        return names;
    }
    QStringList selectedNames() const
    {
        QStringList names;
        for (const QObject *record : m_controller->selectedObjects()) {
            names.append(record->objectName());
        }
        return names;
    }
    void sortByName(bool ascending)
    {
        m_controller->setSortDescriptors({{"objectName", ascending}});
        m_controller->rearrangeObjects();
    }

    std::unique_ptr<ArrayController> m_controller;
};

void ArrayControllerTest::arrangement()
{
    QCOMPARE(names(), QStringList({"gamma", "Beta", "alpha", "ALPHA", "beta"}));
    // Names that are equal but for case stay in the order of addition, both ways.
    sortByName(true);
    QCOMPARE(names(), QStringList({"alpha", "ALPHA", "Beta", "beta", "gamma"}));
    sortByName(false);
    QCOMPARE(names(), QStringList({"gamma", "Beta", "beta", "alpha", "ALPHA"}));
    m_controller->setSortDescriptors({{"length"}, {"objectName", false}});
    m_controller->rearrangeObjects();
    QCOMPARE(names(), QStringList({"Beta", "beta", "gamma", "alpha", "ALPHA"}));
}

void ArrayControllerTest::selection()
{
    QVERIFY(m_controller->selectedObjects().isEmpty());
    m_controller->setSelectionIndexes({4, 0, 4, 7, -1});
    QCOMPARE(selectedNames(), QStringList({"gamma", "beta"}));
    sortByName(true);
    QCOMPARE(m_controller->selectionIndexes(), QList<int>({3, 4}));
    QCOMPARE(selectedNames(), QStringList({"beta", "gamma"}));
}

void ArrayControllerTest::observersAreToldOfChangesOnly()
{
    SelectionObserver observer;
    m_controller->setSelectionIndexes({0});
    m_controller->addObserver(&observer, "selectionIndexes", platform::NewValue, this);
    QCOMPARE(observer.times, 0);
    m_controller->setSelectionIndexes({0});
    QCOMPARE(observer.times, 0);
    m_controller->setSelectionIndexes({1, 2});
    QCOMPARE(observer.times, 1);
    QVERIFY(observer.last == std::tuple("selectionIndexes", QList<int>({1, 2}), this));
    sortByName(true); // Beta and alpha stand at other places now
    QCOMPARE(observer.times, 2);
    m_controller->rearrangeObjects();
    QCOMPARE(observer.times, 2);
    m_controller->setSelectionIndexes({0, 1, 2, 3, 4});
    sortByName(false); // the places are the same, the topmost is another
    QCOMPARE(observer.times, 4);
    m_controller->removeObserver(&observer, "selectionIndexes");
    m_controller->setSelectionIndexes({});
    QCOMPARE(observer.times, 4);
}

void ArrayControllerTest::tableSortsAndKeepsTheSelection()
{
    m_controller = std::make_unique<ArrayController>();
    TableView table;
    table.setProperty("columns", QStringList({"Name|objectName|icon", "Length|length"}));
    table.setArrayController(*m_controller);
    addRecords({"b", "ccc", "aa"});
    sortByName(true);
    QCOMPARE(table.horizontalHeader()->sortIndicatorSection(), 0);
    table.show();

    table.selectRow(1);
    QCOMPARE(selectedNames(), QStringList({"b"}));
    m_controller->setSortDescriptors({{"length", false}});
    m_controller->rearrangeObjects();
    QCOMPARE(names(), QStringList({"ccc", "aa", "b"}));
    QCOMPARE(table.selectionModel()->selectedRows().first().row(), 2);
    QCOMPARE(table.horizontalHeader()->sortIndicatorSection(), 1);
    QCOMPARE(table.horizontalHeader()->sortIndicatorOrder(), Qt::DescendingOrder);

    // What the array controller selects is shown, and what notifies is drawn anew.
    m_controller->setSelectionIndexes({0, 1});
    QCOMPARE(table.selectionModel()->selectedRows().size(), 2);
    int drawnAnew = -1;
    connect(table.model(), &QAbstractItemModel::dataChanged, this,
            [&](const QModelIndex &index) { drawnAnew = index.row(); });
    m_controller->arrangedObjects()[1]->setObjectName("<img src='/etc/passwd'>");
    QCOMPARE(drawnAnew, 1);
    const QModelIndex renamed = table.model()->index(1, 0);
    QCOMPARE(renamed.data(), "<img src='/etc/passwd'>");
    QVERIFY(!renamed.data(Qt::ToolTipRole).toString().contains("<img"));
}

void ArrayControllerTest::tableKeyboard()
{
    m_controller = std::make_unique<ArrayController>();
    TableView table;
    table.setProperty("columns", QStringList({"Name|objectName", "Length|length"}));
    table.setArrayController(*m_controller);
    addRecords({"gamma", "Beta", "alpha", "ALPHA", "beta"});
    table.show();
    table.setFocus();
    const auto press = [&](Qt::Key key, Qt::KeyboardModifiers modifiers = {}) {
        QTest::keyClick(&table, key, modifiers);
        return m_controller->selectionIndexes();
    };
    QCOMPARE(press(Qt::Key_Down), QList<int>({0}));
    QCOMPARE(press(Qt::Key_End), QList<int>({4}));
    QCOMPARE(press(Qt::Key_Home), QList<int>({0}));
    QCOMPARE(press(Qt::Key_Right), QList<int>({0}));
    QCOMPARE(press(Qt::Key_Down, Qt::ShiftModifier), QList<int>({0, 1}));
    QCOMPARE(press(Qt::Key_End, Qt::ShiftModifier), QList<int>({0, 1, 2, 3, 4}));
    QTest::keyClicks(&table, "al");
    QCOMPARE(m_controller->selectionIndexes(), QList<int>({2}));
}

QTEST_MAIN(ArrayControllerTest)
#include "ArrayControllerTest.moc"
