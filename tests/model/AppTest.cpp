#include "model/App.h"
#include "tests/support/TestVolume.h"

#include <QTest>

class AppTest : public QObject
{
    Q_OBJECT

private slots:
    void sizeText();

private:
    TestVolume m_volume;
};

void AppTest::sizeText()
{
    App app("A", "/A.app", platform::Bundle::bundleWithPath("/A.app"));
    const std::tuple<float, const char *, QString> sizes[] = {
        {12.0F, "en_US", "12 MB"},
        {0.04F, "en_US", "0 MB"},
        {0.25F, "en_US", "0.2 MB"}, // half to even
        {0.75F, "en_US", "0.8 MB"},
        {0.35F, "en_US", "0.3 MB"}, // no half in single precision
        {12.36F, "en_US", "12.4 MB"},
        {0.96F, "en_US", "1 MB"},
        {2000.5F, "en_US", "2,000.5 MB"},
        {2000.5F, "de_DE", "2.000,5 MB"},
        {1'234'567.5F, "en_IN", "12,34,567.5 MB"},
        {2000.5F, "es_ES", "2000,5 MB"}, // no separator before a single digit
        {20'000.5F, "es_ES", "20.000,5 MB"}};
    for (const auto &[size, locale, text] : sizes) {
        QLocale::setDefault(QLocale(locale));
        QVERIFY(app.setProperty("size", size));
        QCOMPARE(app.property("sizeMB").toString(), text);
    }
    QVERIFY(app.setProperty("size", QVariant()));
    QCOMPARE(app.property("size"), QVariant());
    QCOMPARE(app.sizeMB(), "");
}

QTEST_GUILESS_MAIN(AppTest)
#include "AppTest.moc"
