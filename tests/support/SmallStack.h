// RunOnSmallStack - runs a function in a thread with a stack of 512 KiB and waits for it, for code whose depth comes
// from its input. Frames that nobody optimised, as in the coverage build, have four times that.
#pragma once

#include <functional>

void RunOnSmallStack(std::function<void()> function);

// AddressSanitizer's red zones may be too much for a deep recursion on that stack.
#ifdef __SANITIZE_ADDRESS__
constexpr bool SmallFrames = false;
#else
constexpr bool SmallFrames = true;
#endif
