#include "ui/platform/ProgressIndicator.h"

namespace platform {

ProgressIndicator::ProgressIndicator(QWidget *parent) : QProgressBar(parent)
{
    setRange(0, 0);
    setTextVisible(false);
    QSizePolicy policy = sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    setSizePolicy(policy);
    hide();
}

void ProgressIndicator::startAnimation(QObject *)
{
    show();
    window()->repaint();
}

void ProgressIndicator::stopAnimation(QObject *)
{
    hide();
}

} // namespace platform
