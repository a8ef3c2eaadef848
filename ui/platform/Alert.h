#pragma once

#include <QString>
#include <QStringList>

namespace platform {

/// Stands for NSAlert: an application-modal question or message, in the warning style.
///
/// The buttons stand in the order in which they were added, whatever the desktop's own habit. The
/// first one answers Return; one titled "Cancel", or else the only one, answers Escape. Its window
/// has the title of the window that it belongs to.
///
/// When the program is to end after the present work, no question is asked any more: it is answered
/// by its "Cancel". A message is shown, unless it can be dispensed with.
class Alert
{
public:
    /// What runModal answers for the first button; each further one answers one more.
    static constexpr int firstButtonReturn = 1000;

    void setMessageText(const QString &text) { m_messageText = text; }
    void setInformativeText(const QString &text) { m_informativeText = text; }
    void addButtonWithTitle(const QString &title) { m_buttonTitles.append(title); }

    void setDispensable(bool isDispensable) { m_isDispensable = isDispensable; }

    /// Shows the alert and returns when it has been closed, with the response of the button that
    /// closed it.
    int runModal();

private:
    bool m_isDispensable = false;
    QString m_messageText;
    QString m_informativeText;
    QStringList m_buttonTitles;
};

} // namespace platform
