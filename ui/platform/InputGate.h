#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>

namespace platform {

/// Lets input into the program, and none while a command works: what comes then is dropped, not
/// queued. A request to end the program is remembered and carried out when the work is done.
///
/// Assistive technology does not act through events but on the widgets themselves; these ask
/// isWorkUnderWay().
class InputGate : public QObject
{
    Q_OBJECT

public:
    /// The application's only one; it exists for as long as that.
    static InputGate &shared();

    enum class Kind
    {
        Loading, ///< changes nothing, and may be given up
        Command
    };

    /// A piece of work during which no input is let in, for as long as this lives.
    class Work
    {
    public:
        explicit Work(Kind kind = Kind::Command);
        ~Work();
        Work(const Work &) = delete;
        Work &operator=(const Work &) = delete;

    private:
        QPointer<QWidget> m_window;
        QPointer<QWidget> m_focus; ///< of the window
    };

    /// Lets input in for as long as this lives, to a question within work.
    class Pause
    {
    public:
        Pause();
        ~Pause();
        Pause(const Pause &) = delete;
        Pause &operator=(const Pause &) = delete;
    };

    /// Also while a question within it waits for its answer.
    bool isWorkUnderWay() const { return m_works > 0; }
    bool isClosed() const { return m_works > 0 && m_pauses == 0; }

    /// Ends the program as closing its window does, after the work under way if there is any. An
    /// open question is taken back. A second request changes nothing.
    void requestEnd();
    bool isEndRequested() const { return m_isEndRequested; }
    bool isLoadingGivenUp() const { return m_isEndRequested && m_isLoading; }

    /// Draws what is to be drawn, answers the window system and assistive technology. Does nothing
    /// where the display is gone, so that the work goes on.
    static void takeTurn();

    /// Keeps an event from its receiver while it is not its time.
    bool eventFilter(QObject *receiver, QEvent *event) override;

signals:
    /// The last piece of work is done.
    void opened();

    /// Work that may be under way waits for an answer.
    void paused();

private:
    InputGate();

    void open();
    Q_INVOKABLE void closeWindow();

    int m_works = 0;
    int m_pauses = 0;
    bool m_isLoading = false;
    bool m_isEndRequested = false;
    bool m_dropsRepeats = false; ///< of a key that was pressed while the gate was closed
};

} // namespace platform
