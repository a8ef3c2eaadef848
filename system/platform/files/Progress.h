#pragma once

#include <chrono>
#include <cstdint>

namespace platform {

/// What the layer is busy with, and how far it is.
struct Progress
{
    enum class Activity
    {
        Copying,
        Flushing,
        Removing,
        Measuring, ///< a folder's size
        Listing    ///< finding applications
    };

    Activity activity = Activity::Copying;
    std::uint64_t items = 0;      ///< done so far
    std::uint64_t bytes = 0;      ///< done so far
    std::uint64_t totalItems = 0; ///< of a copy; 0 when not known
    std::uint64_t totalBytes = 0;
    std::chrono::milliseconds elapsed{0}; ///< since it began
};

/// Is told how far long work is, between two steps of it and on the same thread. It may not begin
/// other work of the layer.
class ProgressObserver
{
public:
    virtual ~ProgressObserver() = default;
    virtual void workProgressed(const Progress &progress) = 0;

    /// The outermost piece of work is over.
    virtual void workEnded() {}

    /// True when nobody wants a list any more that is being made.
    virtual bool isGivenUp() const { return false; }
};

/// One piece of work that is reported to the observer for as long as this lives: at its beginning,
/// several times a second, and at the end of the outermost. Within another it takes its place.
/// Without an observer it costs next to nothing.
class Work
{
public:
    /// Monotonic, to a few milliseconds, and so cheap that each item may look at it.
    struct Clock
    {
        using duration = std::chrono::nanoseconds;
        using time_point = std::chrono::time_point<Clock, duration>;
        static time_point now();
    };

    /// At most one observer; null for none. It stays the caller's.
    static void setObserver(ProgressObserver *observer) { theObserver = observer; }
    static ProgressObserver *observer() { return theObserver; }
    static bool isObserved() { return theObserver != nullptr; }

    /// Notes what has been done of the innermost piece of work under way, if there is one, and
    /// reports it when it is time to.
    static void advance(std::uint64_t items, std::uint64_t bytes)
    {
        if (theObserver != nullptr && innermost != nullptr) {
            innermost->add(items, bytes);
        }
    }

    /// The same for work that waits: reports at once, however little has been done.
    static void wait();

    /// True when the list that is being made is not wanted any more.
    static bool isGivenUp() { return theObserver != nullptr && theObserver->isGivenUp(); }

    explicit Work(Progress::Activity activity);
    ~Work();
    Work(const Work &) = delete;
    Work &operator=(const Work &) = delete;

    void setTotal(std::uint64_t items, std::uint64_t bytes);

    /// Since the work began.
    Clock::duration elapsed() const { return Clock::now() - m_start; }

private:
    void add(std::uint64_t items, std::uint64_t bytes)
    {
        m_progress.items += items;
        m_progress.bytes += bytes;
        reportIfDue();
    }
    void reportIfDue();
    void report();

    static ProgressObserver *theObserver;
    static Work *innermost;

    Work *m_outer = nullptr;
    Progress m_progress;
    Clock::time_point m_start;
    Clock::time_point m_lastReport;
};

} // namespace platform
