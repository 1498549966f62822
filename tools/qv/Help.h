// How qv tells what it does: the example below each command's help, and the command `qv help`.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>
#include <string>

// Puts an example below the help of a command, and the notes, if any, below that. A test runs the example in a folder
// with a table "plant" and some files, so it works as it stands.
void SetExample(CLI::App& command, const std::string& example, const std::string& notes = "");

// qv help: the help of any command, and the manual page of all of them.
void AddHelpCommand(CLI::App& app, ToolContext& context);
