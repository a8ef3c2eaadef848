#pragma once

#include <QString>

namespace platform {

/// Stands for NSUserName: the login name of the user whose settings are worked on. It is the
/// process's own, or on another volume the one that the volume is opened for.
QString userName();

} // namespace platform
