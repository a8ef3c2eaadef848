#pragma once

#include <QProgressBar>

namespace platform {

/// Stands for NSProgressIndicator, of the indeterminate kind: seen only while it is animated.
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
};

} // namespace platform
