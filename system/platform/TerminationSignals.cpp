#include "system/platform/TerminationSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace platform {

namespace {

std::array<int, 2> pipeEnds = {-1, -1};

extern "C" void noteSignal(int)
{
    const int error = errno;
    const char byte = 0;
    if (::write(pipeEnds[1], &byte, 1) != 1) {
        // The pipe is full: it says enough already.
    }
    errno = error;
}

} // namespace

int watchTerminationSignals()
{
    if (pipeEnds[0] < 0 && ::pipe2(pipeEnds.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        return -1;
    }
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        struct sigaction action = {};
        ::sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN) {
            continue;
        }
        action = {};
        action.sa_handler = noteSignal;
        action.sa_flags = SA_RESTART; // a copy under way is not to notice
        ::sigaction(signal, &action, nullptr);
    }
    return pipeEnds[0];
}

} // namespace platform
