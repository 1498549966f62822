// RunOnSmallStack - runs a function in a thread with a stack of 512 KiB and waits for it, for code whose depth comes
// from its input.
#pragma once

#include <functional>

void RunOnSmallStack(std::function<void()> function);

// AddressSanitizer's red zones, and frames that nobody optimised, may be too much for a deep recursion on that stack.
#if defined(__SANITIZE_ADDRESS__) || !defined(__OPTIMIZE__)
constexpr bool SmallFrames = false;
#else
constexpr bool SmallFrames = true;
#endif
