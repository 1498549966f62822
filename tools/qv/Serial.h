// The commands of `qv serial`: what a mode string means, which ports there are, and talking over one.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

// `qv serial` and everything below it.
void AddSerialCommands(CLI::App& app, ToolContext& context);

void AddSerialTalkCommand(CLI::App& serial, ToolContext& context);
