#include "tests/system/platform/files/FileTree.h"

#include <QRandomGenerator>
#include <QTest>

#include <chrono>
#include <csignal>
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
    bool copyTree() const;
    bool removeCopy() const;
    static void killWithin(Microseconds duration, const std::function<bool()> &work);
    std::string unexpectedNames() const;

    ScratchFolder m_scratch{ScratchFolder::Medium::Memory};
    Snapshot m_tree;
};

void CopyKillTest::initTestCase()
{
    makePlainTree(m_scratch.path("tree"), 4000);
    // Several names in different folders, so that there are links under way, too.
    for (int i = 0; i < 4000; i += 40) {
        const std::string name = std::to_string(i);
        ::link(m_scratch.path("tree/" + std::to_string(i / 50) + '/' + name).c_str(),
               m_scratch.path("tree/linked" + name).c_str());
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

bool CopyKillTest::copyTree() const
{
    std::string error;
    return m_scratch.files().copy(m_scratch.path("tree"), m_scratch.path("copy"), error);
}

bool CopyKillTest::removeCopy() const
{
    std::string error;
    return m_scratch.files().remove(m_scratch.path("copy"), error);
}

void CopyKillTest::killWithin(Microseconds duration, const std::function<bool()> &work)
{
    const int process = start(work);
    ::usleep(QRandomGenerator::global()->bounded(static_cast<quint32>(duration.count())));
    ::kill(process, SIGKILL);
    waitFor(process);
}

// Names beside the tree and the copy other than those of hidden, private folders.
std::string CopyKillTest::unexpectedNames() const
{
    std::string names;
    for (const std::string &name : m_scratch.names()) {
        const auto attributes = m_scratch.files().attributes(m_scratch.path(name));
        const bool isExpected =
            name == "tree" || name == "copy" ||
            (name.starts_with(".tarnwell-") && (attributes->mode & 0777U) == 0700U);
        names += isExpected ? "" : name + ' ';
    }
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
        QCOMPARE(unexpectedNames(), std::string());
        leftovers += m_scratch.names().front().starts_with(".tarnwell-") ? 1 : 0;
        if (isThere(m_scratch.path("copy"))) {
            ++complete;
            QCOMPARE(difference(m_tree, snapshot(m_scratch.path("copy"))), QString());
            QCOMPARE(m_scratch.names(), std::vector<std::string>({"copy", "tree"}));
            QVERIFY(removeCopy());
        }
    }
    qInfo("%d of %d were complete, %d left something that was cleared", complete, rounds,
          leftovers);
    QVERIFY(leftovers > 0);
    QVERIFY(copyTree());
    QCOMPARE(m_scratch.names(), std::vector<std::string>({"copy", "tree"}));
    QCOMPARE(difference(m_tree, snapshot(m_scratch.path("copy"))), QString());
    QCOMPARE(difference(m_tree, snapshot(m_scratch.path("tree"))), QString());
    QVERIFY(removeCopy());
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
    QCOMPARE(m_scratch.names(), std::vector<std::string>({"tree"}));
}

QTEST_GUILESS_MAIN(CopyKillTest)

#include "CopyKillTest.moc"
