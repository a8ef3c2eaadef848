#pragma once

#include <cstddef>
#include <cstdint>

/// Hands one input to the reader. Ends the program when the reader breaks a promise.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size);
