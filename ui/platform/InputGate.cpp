#include "ui/platform/InputGate.h"

#include "ui/platform/DesktopSession.h"

#include <QAbstractButton>
#include <QApplication>
#include <QKeyEvent>
#include <QMainWindow>
#include <QMenu>
#include <QThread>
#include <QWindow>

namespace platform {

namespace {

QMainWindow *mainWindow()
{
    for (QWidget *const widget : QApplication::topLevelWidgets()) {
        if (auto *const window = qobject_cast<QMainWindow *>(widget)) {
            return window;
        }
    }
    return nullptr;
}

bool isMainWindow(const QObject *receiver)
{
    const QMainWindow *const window = mainWindow();
    return window && (receiver == window || receiver == window->windowHandle());
}

// What the user does to the program; not that the pointer comes and goes.
bool isInput(const QEvent &event)
{
    switch (event.type()) {
    case QEvent::Enter:
    case QEvent::HoverEnter:
    case QEvent::HoverMove:
    case QEvent::HoverLeave:
        return false;
    case QEvent::Shortcut:
    case QEvent::InputMethod:
    case QEvent::DragEnter:
    case QEvent::DragMove:
    case QEvent::Drop:
        return true;
    default:
        return event.isInputEvent();
    }
}

} // namespace

InputGate &InputGate::shared()
{
    static InputGate gate;
    return gate;
}

InputGate::InputGate()
{
    qApp->installEventFilter(this);
}

InputGate::Work::Work(Kind kind) : m_window(mainWindow())
{
    InputGate &gate = shared();
    ++gate.m_works;
    gate.m_isLoading = kind == Kind::Loading;
    m_focus = m_window ? m_window->focusWidget() : nullptr;
}

InputGate::Work::~Work()
{
    InputGate &gate = shared();
    if (gate.m_works == 1) {
        gate.open();
    }
    --gate.m_works;
    if (m_focus && m_focus->isEnabled() && m_focus != m_window->focusWidget()) {
        m_focus->setFocus(Qt::OtherFocusReason);
    }
    if (gate.m_works == 0) {
        gate.m_isLoading = false;
        emit gate.opened();
        if (gate.m_isEndRequested) {
            QMetaObject::invokeMethod(&gate, "closeWindow", Qt::QueuedConnection);
        }
    }
}

InputGate::Pause::Pause()
{
    ++shared().m_pauses;
    emit shared().paused();
}

InputGate::Pause::~Pause()
{
    --shared().m_pauses;
}

void InputGate::requestEnd()
{
    if (m_isEndRequested) {
        return;
    }
    m_isEndRequested = true;
    if (!isWorkUnderWay()) {
        closeWindow();
    } else if (QWidget *const question = QApplication::activeModalWidget()) {
        question->close();
    }
}

void InputGate::takeTurn()
{
    if (hasDisplay()) {
        QCoreApplication::processEvents();
    }
}

// What the user did up to now reaches the program now, not after it has opened.
void InputGate::open()
{
    constexpr int rounds = 2;
    for (int round = 0; round < rounds; ++round) {
        QGuiApplication::sync();
        QThread::msleep(1); // in which another thread takes what has come
        QCoreApplication::processEvents();
    }
}

bool InputGate::eventFilter(QObject *receiver, QEvent *event)
{
    switch (event->type()) {
    case QEvent::Close:
        if (!isWorkUnderWay() || !isMainWindow(receiver)) {
            return false;
        }
        event->ignore();
        requestEnd();
        return true;
    case QEvent::Quit:
        if (!isWorkUnderWay()) {
            return false;
        }
        requestEnd();
        return true;
    case QEvent::Show:
        // Only assistive technology opens a menu now.
        if (isWorkUnderWay() && qobject_cast<QMenu *>(receiver)) {
            QMetaObject::invokeMethod(receiver, "close", Qt::QueuedConnection);
        }
        return false;
    case QEvent::MouseButtonDblClick:
        // However short the command was: who clicks twice means it once.
        if (qobject_cast<QAbstractButton *>(receiver)) {
            return true;
        }
        break;
    case QEvent::KeyPress:
    case QEvent::ShortcutOverride: {
        const bool isRepeat = static_cast<QKeyEvent *>(event)->isAutoRepeat();
        m_dropsRepeats = isClosed() || (m_dropsRepeats && isRepeat);
        if (m_dropsRepeats) {
            return true;
        }
        break;
    }
    default:
        break;
    }
    return isClosed() && isInput(*event);
}

void InputGate::closeWindow()
{
    if (QMainWindow *const window = mainWindow()) {
        window->close();
    }
    m_isEndRequested = false; // where the program goes on without a window
}

} // namespace platform
