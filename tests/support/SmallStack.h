// RunOnSmallStack - runs a function in a thread with a stack of 512 KiB and waits for it, for code whose depth comes
// from its input.
#pragma once

#include <functional>

void RunOnSmallStack(std::function<void()> function);
