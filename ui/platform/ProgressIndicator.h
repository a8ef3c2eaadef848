#pragma once

#include <QProgressBar>

namespace platform {

/// Stands for NSProgressIndicator, seen only while it is animated, or while long work is under
/// way whose progress it shows.
///
/// It is drawn at once when the animation starts, as the work that it stands for may keep the
/// event loop waiting.
class ProgressIndicator : public QProgressBar
{
    Q_OBJECT

public:
    explicit ProgressIndicator(QWidget *parent = nullptr);

    void startAnimation(QObject *sender);
    void stopAnimation(QObject *sender);

    /// Shows how much of WorkObserver::wholeBar is done; -1 when that is not known.
    void showWork(int done);
    void endWork();
};

} // namespace platform
