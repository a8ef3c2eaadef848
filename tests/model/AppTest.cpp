#include "model/App.h"
#include "tests/support/TestVolume.h"

#include <QTest>

class AppTest : public QObject
{
    Q_OBJECT

private slots:
    void sizeText_data();
    void sizeText();

private:
    TestVolume m_volume;
};

void AppTest::sizeText_data()
{
    QTest::addColumn<QVariant>("size");
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("text");
    const auto row = [](float size, const QString &text, const char *locale = "en_US") {
        QTest::addRow("%g, %s", double(size), locale) << QVariant(size) << QString(locale) << text;
    };
    row(12.0F, "12 MB");
    row(0.04F, "0 MB");
    row(0.25F, "0.2 MB"); // half to even
    row(0.75F, "0.8 MB");
    row(0.35F, "0.3 MB"); // no half in single precision
    row(12.36F, "12.4 MB");
    row(0.96F, "1 MB");
    row(2000.5F, "2,000.5 MB");
    row(2000.5F, "2.000,5 MB", "de_DE");
    row(1'234'567.5F, "12,34,567.5 MB", "en_IN");
    row(2000.5F, "2000,5 MB", "es_ES"); // no separator before a single digit
    row(20'000.5F, "20.000,5 MB", "es_ES");
    QTest::newRow("unset") << QVariant() << "en_US"
                           << "";
}

void AppTest::sizeText()
{
    QFETCH(QVariant, size);
    QFETCH(QString, locale);
    QLocale::setDefault(QLocale(locale));
    App app("A", "/A.app", platform::Bundle::bundleWithPath("/A.app"));
    app.setSize(1.5F);
    QVERIFY(app.setProperty("size", size));
    QCOMPARE(app.property("size"), size);
    QTEST(app.property("sizeMB").toString(), "text");
}

QTEST_GUILESS_MAIN(AppTest)
#include "AppTest.moc"
