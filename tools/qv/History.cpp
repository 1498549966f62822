#include "History.h"

#include "Help.h"

#include <CLI/CLI.hpp>

void AddHistoryCommands(CLI::App& app, ToolContext& context) {
    CLI::App* const history = app.add_subcommand("history", "Record, keep and read back time-stamped values");
    SetExample(*history, "qv history plot plant --tag load.1m");
    history->require_subcommand(1);
    AddHistoryRecordCommand(*history, context);
    AddHistoryImportCommand(*history, context);
    AddHistoryReadCommands(*history, context);
    AddHistoryPlotCommand(*history, context);
    AddHistoryFilesCommands(*history, context);
    AddHistoryReplicationCommands(*history, context);
    AddHistoryCompareCommand(*history, context);
    AddHistoryExportCommands(*history, context);
}
