// The commands of `qv rights`: check, show, explain, init, diff and logon, for the files that docs/user-rights.md
// describes. Nothing but init writes a file.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

void AddRightsCommands(CLI::App& app, ToolContext& context);
