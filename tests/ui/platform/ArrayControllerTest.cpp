#include "ui/platform/ArrayController.h"
#include "tests/support/TestVolume.h"
#include "ui/platform/FilterField.h"
#include "ui/platform/TableView.h"

#include <QDir>
#include <QHeaderView>
#include <QLabel>
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
    void filter();
    void observersAreToldOfChangesOnly();
    void tableSortsAndKeepsTheSelection();
    void tableKeyboard();
    void tableShowsWhatTheFilterLeaves();
    void tableFollowsASelectionFromOutside();
    void tableColumnsTakeWhatTheyNeed();
    void tableLoadsTheIconsThatItDraws();

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

void ArrayControllerTest::filter()
{
    SelectionObserver observer;
    m_controller->addObserver(&observer, "selectionIndexes", platform::NewValue, nullptr);
    sortByName(true);
    m_controller->setSelectionIndexes({0, 2, 4}); // alpha, Beta, gamma
    QCOMPARE(observer.times, 1);
    const auto show = [&](const QString &part) {
        m_controller->setFilter(
            [part](const QObject &record) { return record.objectName().contains(part); });
        m_controller->rearrangeObjects();
        return names();
    };
    QCOMPARE(show("a"), QStringList({"alpha", "Beta", "beta", "gamma"}));
    QCOMPARE(m_controller->selectionIndexes(), QList<int>({0, 1, 3}));
    QCOMPARE(observer.times, 2);
    QCOMPARE(show("mm"), QStringList({"gamma"}));
    QCOMPARE(selectedNames(), QStringList({"gamma"}));
    QCOMPARE(show("nothing"), QStringList());
    QCOMPARE(observer.times, 4);
    QVERIFY(observer.last == std::tuple("selectionIndexes", QList<int>(), nullptr));
    // What was hidden comes back in its place, but is not selected again.
    m_controller->setFilter({});
    sortByName(false);
    QCOMPARE(names(), QStringList({"gamma", "Beta", "beta", "alpha", "ALPHA"}));
    QCOMPARE(selectedNames(), QStringList());
    QCOMPARE(m_controller->content().size(), 5);
    m_controller->removeObserver(&observer, "selectionIndexes");
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
    table.setProperty("columns", QStringList({"Name|objectName", "Length|length"}));
    table.setArrayController(*m_controller);
    addRecords({"b", "ccc", "aa"});
    QCOMPARE(table.horizontalHeader()->sortIndicatorSection(), -1); // not sorted by anything yet
    m_controller->setSortDescriptors({{"objectName", true}});
    QCOMPARE(table.horizontalHeader()->sortIndicatorSection(), 0);
    m_controller->rearrangeObjects();
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

void ArrayControllerTest::tableShowsWhatTheFilterLeaves()
{
    m_controller = std::make_unique<ArrayController>();
    QWidget pane;
    auto *const field = new platform::FilterField(&pane);
    auto *const table = new TableView(&pane);
    field->setProperty("keys", QStringList({"objectName", "other"}));
    table->setProperty("columns", QStringList({"Name|objectName"}));
    table->setProperty("noMatchText", "Nothing matches");
    field->setArrayController(*m_controller);
    table->setArrayController(*m_controller);
    addRecords({"Kitchen", QString::fromUtf8("Cafe\u0301 Gro\u0308\u00dfe"), "almanac", "ALMA"});
    m_controller->arrangedObjects()[0]->setProperty("other", "vnd.sample.Uhr");
    sortByName(true);
    pane.show();
    QVERIFY(QTest::qWaitForWindowActive(&pane));
    const auto shown = [&] {
        QStringList texts;
        for (int row = 0; row < table->model()->rowCount(); ++row) {
            texts.append(table->model()->index(row, 0).data().toString().normalized(
                QString::NormalizationForm_C));
        }
        return texts;
    };
    const auto type = [&](const QString &text) {
        field->startFiltering();
        QTest::keyClicks(field, text);
        return shown();
    };
    const auto selectedByTable = [&] {
        return table->selectionModel()->selectedRows().value(0).row();
    };

    table->selectRow(0); // ALMA
    QCOMPARE(type(" ALM "), QStringList({"ALMA", "almanac"}));
    QCOMPARE(selectedByTable(), 0); // at the same place as before
    QCOMPARE(type("cafe grosse"), QStringList({QString::fromUtf8("Caf\u00e9 Gr\u00f6\u00dfe")}));
    QVERIFY(selectedNames().isEmpty() && !table->selectionModel()->hasSelection());
    QCOMPARE(type("uhr"), QStringList({"Kitchen"}));
    QTest::keyClick(field, Qt::Key_Down);
    QVERIFY(table->hasFocus());
    QCOMPARE(selectedNames(), QStringList({"Kitchen"}));
    QTest::keyClick(table, Qt::Key_Escape);
    QCOMPARE(shown().size(), 4);
    QCOMPARE(selectedByTable(), 3);
    QVERIFY(table->hasFocus());

    const auto explains = [&] {
        const auto labels = pane.findChildren<QLabel *>();
        return std::any_of(labels.begin(), labels.end(), [](const QLabel *label) {
            return label->isVisible() && label->text() == "Nothing matches";
        });
    };
    QVERIFY(!explains());
    QCOMPARE(type("xyz"), QStringList());
    QVERIFY(explains());
    QTest::keyClick(field, Qt::Key_Escape);
    QVERIFY(!explains() && field->hasFocus());
    QTest::keyClick(field, Qt::Key_Escape);
    QVERIFY(table->hasFocus());
}

void ArrayControllerTest::tableFollowsASelectionFromOutside()
{
    m_controller = std::make_unique<ArrayController>();
    TableView table;
    table.setProperty("columns", QStringList({"Name|objectName"}));
    table.setArrayController(*m_controller);
    for (int i = 0; i < 100; ++i) {
        addRecords({QString::number(i)});
    }
    table.resize(300, 200);
    table.show();
    const auto isSeen = [&](int row) {
        const QRect cell = table.visualRect(table.model()->index(row, 0));
        return table.viewport()->rect().contains(cell.center());
    };
    // As assistive technology selects, which leaves the current row where it is.
    const auto select = [&](int row) {
        table.selectionModel()->select(table.model()->index(row, 0),
                                       QItemSelectionModel::ClearAndSelect |
                                           QItemSelectionModel::Rows);
    };
    select(70);
    QTRY_VERIFY(isSeen(70));
    QTest::keyClick(&table, Qt::Key_Down);
    QCOMPARE(m_controller->selectionIndexes(), QList<int>({71}));
    // More rows beside one that is seen and current move nothing.
    table.selectAll();
    QCoreApplication::processEvents();
    QVERIFY(isSeen(71) && !isSeen(0));
}

void ArrayControllerTest::tableColumnsTakeWhatTheyNeed()
{
    m_controller = std::make_unique<ArrayController>();
    TableView table;
    table.setProperty("columns", QStringList({"Name|objectName|||5", "Length|length|||5",
                                              "Name again|objectName|||5"}));
    table.setArrayController(*m_controller);
    addRecords(QStringList(19, QString(30, 'n')) + QStringList(QString(200, 'n')));
    table.resize(1000, 200);
    table.show();
    m_controller->rearrangeObjects();
    const auto width = [&](int column) { return table.columnWidth(column); };
    const int needed = table.fontMetrics().horizontalAdvance(QString(30, 'n'));
    QVERIFY(width(0) > needed && width(0) < needed + 30);
    QVERIFY(width(1) < needed / 2);
    const auto isFilled = [&] {
        return width(0) + width(1) + width(2) == table.viewport()->width();
    };
    QVERIFY(isFilled());
    table.resize(needed, 200);
    QVERIFY(width(0) < needed && isFilled());
    // A width that the user has set stays.
    table.horizontalHeader()->resizeSection(0, 50);
    table.resize(1000, 200);
    m_controller->rearrangeObjects();
    QCOMPARE(width(0), 50);
}

void ArrayControllerTest::tableLoadsTheIconsThatItDraws()
{
    m_controller = std::make_unique<ArrayController>();
    TableView table;
    table.setProperty("columns", QStringList({"Name|objectName|icon|path"}));
    table.setIconSize({16, 16});
    table.setArrayController(*m_controller);
    const TestVolume volume;
    QImage image(32, 32, QImage::Format_RGB32);
    image.fill(Qt::red);
    QStringList names;
    for (int i = 100; i < 400; ++i) {
        names.append(QString::number(i));
        const QString path = QStringLiteral("/%1.app").arg(i);
        volume.writeBundle(path, {{"CFBundleIconFile", "icon.png"}});
        QDir().mkpath(volume.host(path + "/Contents/Resources"));
        QVERIFY(image.save(volume.host(path + "/Contents/Resources/icon.png")));
    }
    addRecords(names);
    for (const auto &record : m_controller->arrangedObjects()) {
        record->setProperty("path", QStringLiteral("/%1.app").arg(record->objectName()));
    }
    // The frame of the row that has the focus tints the colour a little.
    const auto draws = [&](int row, const QColor &color) {
        const QRect cell = table.visualRect(table.model()->index(row, 0));
        const QImage drawn = table.viewport()->grab().toImage();
        const QColor found = drawn.pixelColor(cell.left() + 10, cell.center().y());
        return qAbs(found.red() - color.red()) + qAbs(found.blue() - color.blue()) < 100;
    };
    const auto loaded = [&](int row) {
        const auto icon = table.model()->index(row, 0).data(Qt::DecorationRole).value<QIcon>();
        return icon.pixmap(16).toImage().pixelColor(8, 8) == QColor(Qt::red);
    };
    table.resize(300, 300);
    table.show();
    QTRY_VERIFY(draws(0, Qt::red));
    QTRY_VERIFY(draws(table.rowAt(table.viewport()->height() / 2), Qt::red));
    table.scrollToBottom();
    QTRY_VERIFY(draws(299, Qt::red));
    QVERIFY(loaded(0) && !loaded(150)); // which was never drawn
    QVERIFY(!m_controller->arrangedObjects()[0]->property("icon").isValid());

    // What a record has of its own goes first.
    image.fill(Qt::blue);
    m_controller->arrangedObjects()[0]->setProperty("icon", QIcon(QPixmap::fromImage(image)));
    table.scrollToTop();
    QVERIFY(draws(0, Qt::blue));
}

QTEST_MAIN(ArrayControllerTest)
#include "ArrayControllerTest.moc"
