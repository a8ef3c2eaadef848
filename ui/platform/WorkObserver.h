#pragma once

#include "system/platform/files/Progress.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>

#include <functional>

namespace platform {

/// Watches the layer's work while this lives: keeps the window alive meanwhile, and says of long
/// work how far it is.
///
/// During a command input is dropped (InputGate). Other work, the resolution of a selection, leaves
/// the user's input in its queue.
class WorkObserver : public QObject, public ProgressObserver
{
    Q_OBJECT

public:
    static constexpr int wholeBar = 1000;

    explicit WorkObserver(QObject *parent = nullptr);
    ~WorkObserver() override;

    void workProgressed(const Progress &progress) override;
    void workEnded() override;
    bool isGivenUp() const override;

    /// True while events are processed in the midst of work that is no command; what assistive
    /// technology wants then has to wait.
    static bool isTakingTurn() { return inTurn; }

    /// Does something later, when the work in whose midst it was wanted may be over. Not when
    /// `context` is gone by then.
    static void doLater(QObject &context, const std::function<void()> &action);

signals:
    /// Work has taken a while: a text for the user, and how much of wholeBar is done, -1 when that
    /// is not known.
    void progressed(const QString &text, int done);

    /// What progressed() has told of is over.
    void ended();

private:
    void show(const Progress &progress);
    QString text(const Progress &progress) const;
    QString details(const Progress &progress) const;
    QString timeLeft(const Progress &progress) const;
    void end();

    static bool inTurn;

    QElapsedTimer m_work;     ///< since the command or the piece of work began
    QElapsedTimer m_lastShow; ///< invalid while nothing is shown
    Progress::Activity m_shownActivity = Progress::Activity::Copying;
    int m_done = -1;
};

} // namespace platform
