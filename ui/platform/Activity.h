#pragma once

#include <QString>

namespace platform {

/// What the user is told that the program does, for as long as this lives: "Backing up the data of
/// Recipe Drawer". It is shown only when that takes long.
class Activity
{
public:
    explicit Activity(const QString &title) : m_outer(std::exchange(currentTitle, title)) {}
    ~Activity() { currentTitle = m_outer; }
    Activity(const Activity &) = delete;
    Activity &operator=(const Activity &) = delete;

    /// Of the innermost activity; null when there is none.
    static const QString &title() { return currentTitle; }

private:
    static inline QString currentTitle;

    QString m_outer;
};

} // namespace platform
