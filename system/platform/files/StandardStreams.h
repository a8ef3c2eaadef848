#pragma once

namespace platform {

/// Opens those of the descriptors 0 to 2 on the null device that the process was started without.
/// Otherwise the next file to be opened would get such a number, and what is meant for standard
/// output. To be called before anything is opened.
void openStandardStreams();

} // namespace platform
