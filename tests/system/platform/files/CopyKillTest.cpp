#include "tests/system/platform/files/FileTree.h"

#include <QRandomGenerator>
#include <QTest>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <sys/wait.h>

/// Copies and removals that are killed at any moment.
class CopyKillTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void copies();
    void removals();

private:
    using Microseconds = std::chrono::microseconds;

    Microseconds timeOf(const std::function<bool()> &work);
    bool copyTree() const { return m_scratch.copy("tree", "copy").isEmpty(); }
    bool removeCopy() const { return m_scratch.remove("copy").isEmpty(); }
    static void killWithin(Microseconds duration, const std::function<bool()> &work);
    QStringList unexpectedNames() const;

    ScratchFolder m_scratch{ScratchFolder::Medium::Memory};
    Snapshot m_tree;
};

void CopyKillTest::initTestCase()
{
    makePlainTree(m_scratch.path("tree"), 4000);
    // Several names in different folders, so that there are links under way, too.
    for (int i = 0; i < 4000; i += 40) {
        const std::string name = std::to_string(i);
        std::filesystem::create_hard_link(
            m_scratch.path("tree/" + std::to_string(i / 50) + '/' + name),
            m_scratch.path("tree/linked" + name));
    }
    m_tree = snapshot(m_scratch.path("tree"));
    QCOMPARE(m_tree.size(), 4181U);
}

CopyKillTest::Microseconds CopyKillTest::timeOf(const std::function<bool()> &work)
{
    const auto begin = std::chrono::steady_clock::now();
    const bool isDone = waitFor(start(work));
    const auto duration = std::chrono::steady_clock::now() - begin;
    return isDone ? std::chrono::duration_cast<Microseconds>(duration) : Microseconds(0);
}

void CopyKillTest::killWithin(Microseconds duration, const std::function<bool()> &work)
{
    const int process = start(work);
    ::usleep(QRandomGenerator::global()->bounded(static_cast<quint32>(duration.count())));
    ::kill(process, SIGKILL);
    waitFor(process);
}

// Names beside the tree and the copy other than those of hidden, private folders.
QStringList CopyKillTest::unexpectedNames() const
{
    QStringList names = m_scratch.names();
    names.removeIf([this](const QString &name) {
        struct stat status = {};
        ::lstat(m_scratch.path(name.toStdString()).c_str(), &status);
        return name == "tree" || name == "copy" ||
               (name.startsWith(".tarnwell-") && (status.st_mode & 0777U) == 0700U);
    });
    return names;
}

void CopyKillTest::copies()
{
    constexpr int rounds = 500;
    const Microseconds duration = timeOf([this] { return copyTree(); });
    QVERIFY(duration.count() > 0);
    QVERIFY(removeCopy());
    int complete = 0;
    int leftovers = 0;
    for (int round = 0; round < rounds; ++round) {
        killWithin(duration * 11 / 10, [this] { return copyTree(); });
        QCOMPARE(unexpectedNames(), QStringList());
        leftovers += m_scratch.names().front().startsWith(".tarnwell-") ? 1 : 0;
        if (isThere(m_scratch.path("copy"))) {
            ++complete;
            QCOMPARE(difference(m_tree, snapshot(m_scratch.path("copy"))), QString());
            QVERIFY(removeCopy()); // and what was left beside it
            QCOMPARE(m_scratch.names(), QStringList({"tree"}));
        }
    }
    qInfo("%d of %d were complete, %d left something that was cleared", complete, rounds,
          leftovers);
    QVERIFY(leftovers > 0);
    QVERIFY(copyTree() && removeCopy());
    QCOMPARE(m_scratch.names(), QStringList({"tree"}));
    QCOMPARE(difference(m_tree, snapshot(m_scratch.path("tree"))), QString());
}

void CopyKillTest::removals()
{
    constexpr int rounds = 60;
    QVERIFY(copyTree());
    const Microseconds duration = timeOf([this] { return removeCopy(); });
    QVERIFY(duration.count() > 0);
    int whole = 0;
    for (int round = 0; round < rounds; ++round) {
        if (!isThere(m_scratch.path("copy"))) {
            QVERIFY(copyTree());
        }
        killWithin(duration * 11 / 10, [this] { return removeCopy(); });
        if (isThere(m_scratch.path("copy"))) {
            ++whole;
            QCOMPARE(difference(m_tree, snapshot(m_scratch.path("copy"))), QString());
        }
    }
    qInfo("%d of %d were not begun", whole, rounds);
    QVERIFY(isThere(m_scratch.path("copy")) || copyTree());
    QVERIFY(removeCopy());
    QCOMPARE(m_scratch.names(), QStringList({"tree"}));
}

QTEST_GUILESS_MAIN(CopyKillTest)

#include "CopyKillTest.moc"
