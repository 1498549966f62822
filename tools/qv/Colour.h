// qv colour: what a colour's text means, and the names there are.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

void AddColourCommand(CLI::App& app, ToolContext& context);
