// All commands of qv.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

// Adds every command, and the options that all of them have. The context is borrowed.
void AddCommands(CLI::App& app, ToolContext& context);
