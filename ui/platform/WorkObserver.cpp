#include "ui/platform/WorkObserver.h"

#include "ui/platform/Activity.h"
#include "ui/platform/InputGate.h"
#include "ui/platform/TextMarks.h"

#include <QCoreApplication>
#include <QLocale>
#include <QScopedValueRollback>
#include <QTimer>

namespace platform {

namespace {

using Kind = Progress::Activity; // beside the class Activity

constexpr int longWork = 300;         // milliseconds; less flashes nothing
constexpr int showInterval = 250;     // milliseconds
constexpr int waitForTurn = 20;       // milliseconds
constexpr double bytesPerItem = 16e3; // that an item's own cost is worth
constexpr double mostOfBar = 0.99;    // the rest is for what follows the last byte
constexpr std::chrono::seconds foreseeable(2);

double amount(std::uint64_t items, std::uint64_t bytes)
{
    return double(items) * bytesPerItem + double(bytes);
}

double doneShare(const Progress &progress)
{
    const double total = amount(progress.totalItems, progress.totalBytes);
    return qMin(amount(progress.items, progress.bytes) / total, mostOfBar);
}

bool hasTotal(const Progress &progress)
{
    return progress.activity == Kind::Copying && progress.totalItems > 0;
}

} // namespace

bool WorkObserver::inTurn = false;

WorkObserver::WorkObserver(QObject *parent) : QObject(parent)
{
    Work::setObserver(this);
    connect(&InputGate::shared(), &InputGate::opened, this, &WorkObserver::end);
    connect(&InputGate::shared(), &InputGate::paused, this, &WorkObserver::end);
}

WorkObserver::~WorkObserver()
{
    Work::setObserver(nullptr);
}

void WorkObserver::workProgressed(const Progress &progress)
{
    if (inTurn) {
        return;
    }
    if (!m_work.isValid()) {
        m_work.start();
    }
    const bool isLong = m_work.hasExpired(longWork);
    if (isLong) {
        show(progress);
    }
    if (InputGate::shared().isClosed()) {
        InputGate::takeTurn();
    } else if (isLong) {
        const QScopedValueRollback turn(inTurn, true);
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    }
}

void WorkObserver::workEnded()
{
    if (!InputGate::shared().isWorkUnderWay()) {
        end();
    }
}

bool WorkObserver::isGivenUp() const
{
    return InputGate::shared().isLoadingGivenUp();
}

void WorkObserver::doLater(QObject &context, const std::function<void()> &action)
{
    auto *const timer = new QTimer(&context);
    connect(timer, &QTimer::timeout, timer, &QObject::deleteLater);
    connect(timer, &QTimer::timeout, &context, action);
    timer->setSingleShot(true);
    timer->start(waitForTurn);
}

void WorkObserver::show(const Progress &progress)
{
    if (hasTotal(progress)) {
        m_done = qMax(m_done, int(doneShare(progress) * wholeBar));
    }
    const bool isNew = !m_lastShow.isValid() || progress.activity != m_shownActivity;
    if (!isNew && !m_lastShow.hasExpired(showInterval)) {
        return;
    }
    const QString news = text(progress);
    if (news.isEmpty()) {
        return;
    }
    m_lastShow.start();
    m_shownActivity = progress.activity;
    emit progressed(news, m_done);
}

QString WorkObserver::text(const Progress &progress) const
{
    QString title = singleLine(Activity::title());
    QString step;
    switch (progress.activity) {
    case Kind::Listing:
        return title;
    case Kind::Copying:
        step = title.isEmpty() ? tr("Copying") : title;
        break;
    case Kind::Flushing:
        return title.isEmpty() ? tr("Flushing to the disk")
                               : tr("%1: flushing to the disk").arg(title);
    case Kind::Removing:
        step = title.isEmpty() ? tr("Removing") : tr("%1: removing what it replaces").arg(title);
        break;
    case Kind::Measuring:
        step = title.isEmpty() ? tr("Measuring the size") : title;
        break;
    }
    const QString more = details(progress);
    return more.isEmpty() ? step : tr("%1: %2").arg(step, more);
}

QString WorkObserver::details(const Progress &progress) const
{
    const QLocale locale;
    const auto number = [&locale](std::uint64_t value) {
        return locale.toString(qulonglong(value));
    };
    const auto size = [&locale](std::uint64_t bytes) {
        return locale.formattedDataSize(qint64(bytes), 1, QLocale::DataSizeSIFormat);
    };
    if (progress.items == 0 && progress.bytes == 0) {
        return {};
    }
    if (progress.activity != Kind::Copying) {
        return tr("%1 items").arg(number(progress.items));
    }
    if (!hasTotal(progress)) {
        return tr("%1 items, %2").arg(number(progress.items), size(progress.bytes));
    }
    // What is there may become more while it is copied.
    const QString done =
        tr("%1 of %2 items, %3 of %4")
            .arg(number(progress.items), number(qMax(progress.items, progress.totalItems)),
                 size(progress.bytes), size(qMax(progress.bytes, progress.totalBytes)));
    const QString left = timeLeft(progress);
    return left.isEmpty() ? done : tr("%1, %2").arg(done, left);
}

QString WorkObserver::timeLeft(const Progress &progress) const
{
    constexpr double leastShare = 0.01; // before it every guess is wild
    const double share = doneShare(progress);
    if (progress.elapsed < foreseeable || share < leastShare) {
        return {};
    }
    const double seconds = double(progress.elapsed.count()) / 1000 * (1 - share) / share;
    if (seconds < 90) {
        const int tens = qMax(1, int((seconds + 9) / 10)) * 10;
        return seconds < 10 ? tr("a few seconds left") : tr("about %1 seconds left").arg(tens);
    }
    const int minutes = int((seconds + 30) / 60);
    return tr("about %1 minutes left").arg(QLocale().toString(minutes));
}

void WorkObserver::end()
{
    m_work.invalidate();
    m_done = -1;
    if (m_lastShow.isValid()) {
        m_lastShow.invalidate();
        emit ended();
    }
}

} // namespace platform
