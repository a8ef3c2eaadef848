#include "ui/platform/DiskStatus.h"
#include "tests/support/TestVolume.h"
#include "ui/platform/ArrayController.h"
#include "ui/platform/StatusLabel.h"

#include <QDir>
#include <QTest>

using platform::ArrayController;
using platform::DiskStatus;
using platform::StatusLabel;

class DiskStatusTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_volume.clear(); }
    void whoseLibrary();
    void noDisk();
    void counts();

private:
    void makeLibrary(const QString &user) const
    {
        QDir().mkpath(m_volume.host("/Users/" + user + "/Library"));
    }

    TestVolume m_volume;
};

void DiskStatusTest::whoseLibrary()
{
    QCOMPARE(DiskStatus().problem(),
             "There is no library of anna on volume, nor of anyone else. Is it a Mac's disk?");
    for (const QString user : {"mira", "bob", "Shared", ".hidden"}) {
        makeLibrary(user);
    }
    QCOMPARE(DiskStatus().problem(),
             "There is no library of anna on volume. The users who have one: bob, mira.");
    makeLibrary("Anna"); // the same on a Mac
    QVERIFY(DiskStatus().problem().isNull());
    QCOMPARE(DiskStatus().placeOf("Nothing"), "Nothing on volume, library of anna");
}

void DiskStatusTest::noDisk()
{
    const QString root = m_volume.host({});
    QVERIFY(QDir().rename(root, root + ".moved"));
    QCOMPARE(DiskStatus().problem(),
             "There is no disk at " + root + ". Is it connected and mounted?");
    QFile file(root);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(DiskStatus().problem().startsWith("The disk at " + root + " cannot be read: "));
    QVERIFY(file.remove());
    QVERIFY(QDir().rename(root + ".moved", root));
}

void DiskStatusTest::counts()
{
    const auto label = [](ArrayController &controller, const DiskStatus &disk) {
        auto result = std::make_unique<StatusLabel>();
        result->setProperty("loadingText", "Loading");
        result->setProperty("countTexts", QStringList({"1 thing", "%1 things", "%1 of %2 things"}));
        result->setSources(controller, disk);
        return result;
    };
    ArrayController controller;
    const DiskStatus unusable;
    const auto silent = label(controller, unusable);
    makeLibrary("anna");
    const DiskStatus disk;
    const auto counting = label(controller, disk);
    QCOMPARE(counting->text(), "Loading");

    const auto textAfterAdding = [&](int number) {
        for (int i = 0; i < number; ++i) {
            controller.addObject(std::make_shared<QObject>());
        }
        controller.rearrangeObjects();
        QString text = counting->text();
        return text.remove(" on volume, library of anna");
    };
    QCOMPARE(textAfterAdding(0), "0 things");
    QCOMPARE(textAfterAdding(1), "1 thing");
    QCOMPARE(textAfterAdding(1233), QLocale().toString(1234) + " things");
    const QObject *const kept = controller.content().first().get();
    controller.setFilter([&](const QObject &record) { return &record == kept; });
    QCOMPARE(textAfterAdding(0), "1 of " + QLocale().toString(1234) + " things");
    QCOMPARE(silent->text(), "");
}

QTEST_MAIN(DiskStatusTest)
#include "DiskStatusTest.moc"
