#include "model/App.h"
#include "tests/support/NotificationLog.h"
#include "tests/support/TestVolume.h"

#include <QTest>

class AppTest : public QObject
{
    Q_OBJECT

private slots:
    void newRecord();
    void settersAlwaysNotify();
    void sizeText_data();
    void sizeText();

private:
    std::unique_ptr<App> app(const QMap<QString, QString> &info)
    {
        m_volume.clear();
        m_volume.writeBundle("/A.app", info);
        return std::make_unique<App>("A", "/A.app", platform::Bundle::bundleWithPath("/A.app"));
    }

    TestVolume m_volume;
};

void AppTest::newRecord()
{
    const auto nameless = app({{"CFBundleName", "A"}});
    QVERIFY(nameless->identifier().isNull() && nameless->version().isNull());
    QVERIFY(nameless->appIcon().isNull() && !nameless->property("size").isValid());
    QVERIFY(nameless->prefs() != nameless->data());
    QVERIFY(nameless->prefs()->path().isNull() && !nameless->data()->found());
    QCOMPARE(nameless->property("prefs").value<Path *>(), nameless->prefs());

    QCOMPARE(app({{"CFBundleIdentifier", "vnd.a"}})->identifier(), "vnd.a");
    // An empty identifier is one.
    const auto empty = app({{"CFBundleIdentifier", ""}});
    QVERIFY(!empty->identifier().isNull() && empty->identifier().isEmpty());
}

void AppTest::settersAlwaysNotify()
{
    const auto record = app({});
    NotificationLog log;
    log.observe(*record, "a");
    record->setName("A");
    record->setPath("/A.app");
    record->setBundle(record->bundle());
    record->setAppIcon({});
    record->setIdentifier("i");
    record->setProperty("size", 1.5f);
    record->setVersion("1");
    QCOMPARE(log.take(), QStringList({"a.name=A", "a.path=/A.app", "a.bundle=", "a.appIcon=",
                                      "a.identifier=i", "a.size=1.5", "a.version=1"}));
    QCOMPARE(record->size(), std::optional(1.5f));
}

void AppTest::sizeText_data()
{
    QTest::addColumn<QString>("locale");
    QTest::addColumn<float>("size");
    QTest::addColumn<QString>("text");
    QTest::newRow("whole") << "en_US" << 12.0f << "12 MB";
    QTest::newRow("no trailing zero") << "en_US" << 3.0f << "3 MB";
    QTest::newRow("nearly nothing") << "en_US" << 0.04f << "0 MB";
    QTest::newRow("half to even, down") << "en_US" << 0.25f << "0.2 MB";
    QTest::newRow("half to even, up") << "en_US" << 0.75f << "0.8 MB";
    QTest::newRow("not a half in single precision") << "en_US" << 0.35f << "0.3 MB";
    QTest::newRow("one digit") << "en_US" << 12.36f << "12.4 MB";
    QTest::newRow("up to a whole") << "en_US" << 0.96f << "1 MB";
    QTest::newRow("grouping") << "en_US" << 2000.5f << "2,000.5 MB";
    QTest::newRow("German") << "de_DE" << 2000.5f << "2.000,5 MB";
}

void AppTest::sizeText()
{
    QFETCH(QString, locale);
    QFETCH(float, size);
    QLocale::setDefault(QLocale(locale));
    const auto record = app({});
    QCOMPARE(record->sizeMB(), "");
    record->setSize(size);
    QTEST(record->property("sizeMB").toString(), "text");
}

QTEST_GUILESS_MAIN(AppTest)
#include "AppTest.moc"
