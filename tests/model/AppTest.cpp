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
    record->setSize(1.5f);
    QCOMPARE(notificationsOfSettingAgain(*record),
             QStringList({"set.name=A", "set.path=/A.app", "set.bundle=", "set.appIcon=",
                          "set.identifier=", "set.size=1.5", "set.version="}));
}

void AppTest::sizeText()
{
    const auto record = app({});
    QCOMPARE(record->sizeMB(), "");
    const auto text = [&](float size, const char *locale = "en_US") {
        QLocale::setDefault(QLocale(locale));
        record->setSize(size);
        return record->property("sizeMB").toString();
    };
    QCOMPARE(text(12.0f), "12 MB");
    QCOMPARE(text(0.04f), "0 MB");
    QCOMPARE(text(0.25f), "0.2 MB"); // half to even
    QCOMPARE(text(0.75f), "0.8 MB");
    QCOMPARE(text(0.35f), "0.3 MB"); // no half in single precision
    QCOMPARE(text(12.36f), "12.4 MB");
    QCOMPARE(text(0.96f), "1 MB");
    QCOMPARE(text(2000.5f), "2,000.5 MB");
    QCOMPARE(text(2000.5f, "de_DE"), "2.000,5 MB");
}

QTEST_GUILESS_MAIN(AppTest)
#include "AppTest.moc"
