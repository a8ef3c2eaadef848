#include "ui/platform/DesktopSession.h"

#include "ui/platform/InputGate.h"

#include <QGuiApplication>

#include <X11/ICE/ICElib.h>
#include <poll.h>
#include <xcb/xcb.h>

namespace platform {

bool hasDisplay()
{
    const auto *const x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || !x11->connection()) {
        return true;
    }
    pollfd server = {::xcb_get_file_descriptor(x11->connection()), POLLRDHUP, 0};
    return ::poll(&server, 1, 0) == 0;
}

void watchSessionManager()
{
    ::IceSetIOErrorHandler([](IceConn) { InputGate::shared().requestEnd(); });
}

} // namespace platform
