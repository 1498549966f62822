// The commands of `qv history`, one function per group. Each adds its commands to the given one; a command
// that is chosen runs while the command line is parsed and leaves its exit code in the context.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

// `qv history` and everything below it.
void AddHistoryCommands(CLI::App& app, ToolContext& context);

void AddHistoryRecordCommand(CLI::App& history, ToolContext& context);
void AddHistoryImportCommand(CLI::App& history, ToolContext& context);
// read, stats
void AddHistoryReadCommands(CLI::App& history, ToolContext& context);
void AddHistoryPlotCommand(CLI::App& history, ToolContext& context);
// files, validate, housekeep, delete
void AddHistoryFilesCommands(CLI::App& history, ToolContext& context);
// standby, replicate
void AddHistoryReplicationCommands(CLI::App& history, ToolContext& context);
void AddHistoryCompareCommand(CLI::App& history, ToolContext& context);
// export, ddl
void AddHistoryExportCommands(CLI::App& history, ToolContext& context);
