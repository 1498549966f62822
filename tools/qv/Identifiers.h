// qv guid, qv url: identifiers made, checked and taken apart.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

void AddIdentifierCommands(CLI::App& app, ToolContext& context);
