#include "system/platform/files/Progress.h"

#include <ctime>

namespace platform {

namespace {

// Assistive technology asks hundreds of things in turn, and one is answered with each report.
constexpr std::chrono::milliseconds reportInterval(20);

} // namespace

ProgressObserver *Work::theObserver = nullptr;
Work *Work::innermost = nullptr;

Work::Clock::time_point Work::Clock::now()
{
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return time_point(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

Work::Work(Progress::Activity activity) : m_outer(innermost)
{
    innermost = this;
    m_progress.activity = activity;
    if (theObserver != nullptr) {
        m_start = Clock::now();
        report();
    }
}

Work::~Work()
{
    innermost = m_outer;
    if (theObserver != nullptr && m_outer == nullptr) {
        theObserver->workEnded();
    }
}

void Work::wait()
{
    if (theObserver != nullptr && innermost != nullptr) {
        innermost->report();
    }
}

void Work::setTotal(std::uint64_t items, std::uint64_t bytes)
{
    m_progress.totalItems = items;
    m_progress.totalBytes = bytes;
}

void Work::reportIfDue()
{
    if (Clock::now() - m_lastReport >= reportInterval) {
        report();
    }
}

void Work::report()
{
    m_progress.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed());
    theObserver->workProgressed(m_progress);
    m_lastReport = Clock::now();
}

} // namespace platform
