// The manual page qv(1), made from the commands themselves.
#pragma once

#include <CLI/App.hpp>
#include <string>

// The page in the language of man(7).
std::string ManualPage(const CLI::App& app);
