// RunAsUser - runs a function with another effective user, which only root may.
#pragma once

#include <functional>

// False, and the function not run, when the process may not become that user. Numbers that no user has may be given too.
bool RunAsUser(unsigned int user, const std::function<void()>& function);
