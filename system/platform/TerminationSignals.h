#pragma once

namespace platform {

/// From now on SIGTERM, SIGINT and SIGHUP do not end the process: each makes the descriptor that is
/// returned readable, with one byte. One that was ignored when the process started stays ignored.
/// The processes that this one starts have them as usual. -1 when it cannot be done.
///
/// The descriptor does not block and is never closed, so that a second signal on the way out does
/// no harm either.
int watchTerminationSignals();

} // namespace platform
