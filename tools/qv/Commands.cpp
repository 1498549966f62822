#include "Commands.h"

#include "Annotate.h"
#include "Bytes.h"
#include "Cert.h"
#include "Colour.h"
#include "Format.h"
#include "Help.h"
#include "History.h"
#include "Identifiers.h"
#include "Json.h"
#include "Rights.h"
#include "Serial.h"
#include "Tag.h"
#include "Tls.h"

#include <CLI/CLI.hpp>

namespace {

void AddGlobalOptions(CLI::App& app, ToolContext& context) {
    app.set_help_flag("-h,--help", "print this help");
    app.set_version_flag("--version", "qv " QV_VERSION, "print the version of the library");
    CLI::Option* const json = app.add_flag_callback(
        "--json", [&context] { context.m_Format = OutputFormat::Json; }, "print one JSON object a line");
    app.add_flag_callback(
           "--csv", [&context] { context.m_Format = OutputFormat::Csv; }, "print comma-separated values")
        ->excludes(json);
    app.fallthrough(); // global options may also stand behind the command
    app.require_subcommand(1);
    SetExample(app, "qv help history read", "Exit codes: 0 done, 1 findings, 2 usage, 3 input or output.");
}

} // namespace

void AddCommands(CLI::App& app, ToolContext& context) {
    AddGlobalOptions(app, context);
    AddCertCommands(app, context);
    AddFormatCommands(app, context);
    AddHistoryCommands(app, context);
    AddJsonCommands(app, context);
    AddRightsCommands(app, context);
    AddSerialCommands(app, context);
    AddTagCommands(app, context);
    AddTlsCommands(app, context);
    AddColourCommand(app, context);
    AddBytesCommands(app, context);
    AddIdentifierCommands(app, context);
    AddAnnotateCommand(app, context);
    AddHelpCommand(app, context);
}
