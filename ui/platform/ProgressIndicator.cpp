#include "ui/platform/ProgressIndicator.h"

#include "ui/platform/WorkObserver.h"

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

void ProgressIndicator::showWork(int done)
{
    setRange(0, done < 0 ? 0 : WorkObserver::wholeBar);
    if (done >= 0) {
        setValue(done);
    }
    show();
}

void ProgressIndicator::endWork()
{
    hide();
    setRange(0, 0);
}

} // namespace platform
