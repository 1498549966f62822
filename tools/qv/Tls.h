// The commands of `qv tls`: connecting to a server and seeing, step by step, what comes of it.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

// `qv tls` and everything below it.
void AddTlsCommands(CLI::App& app, ToolContext& context);
