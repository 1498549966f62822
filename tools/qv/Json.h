// The commands of `qv json`: format, check, eval, print. A command that is chosen runs while the command line is
// parsed and leaves its exit code in the context.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

void AddJsonCommands(CLI::App& app, ToolContext& context);
