// qv dump, qv crc16: files as bytes.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

void AddBytesCommands(CLI::App& app, ToolContext& context);
