// qv cert: certificates and keys of servers.
#pragma once

#include "Tool.h"

namespace CLI {
class App;
}

void AddCertCommands(CLI::App& app, ToolContext& context);
