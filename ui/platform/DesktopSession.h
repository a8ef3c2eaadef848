#pragma once

// The desktop's session may end before the program does: a log-out that does not wait, a display
// server or a session manager that is killed. The libraries that speak with them end the process
// then, as soon as they notice, wherever it is.

namespace platform {

/// Whether the X server still speaks with the program. If not, the next turn of the event loop ends
/// the process; so does a server that goes during that turn, a small part of the time. On other
/// kinds of display the answer is always yes.
bool hasDisplay();

/// When the session manager goes away, lets the program end as on a request to close its window.
/// The request comes again with every turn of the event loop until it does.
void watchSessionManager();

} // namespace platform
