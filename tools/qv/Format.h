// qv format: what patterns make of numbers and times.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

// number, time
void AddFormatCommands(CLI::App& app, ToolContext& context);
