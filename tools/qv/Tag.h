// qv tag: names of tags matched, sorted, and rewritten.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

// match, sort, relative, absolute, rename
void AddTagCommands(CLI::App& app, ToolContext& context);
