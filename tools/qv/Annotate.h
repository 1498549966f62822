// qv annotate: compilers' messages, filed under the sources that they are about.
#pragma once

#include "Tool.h"

#include <CLI/App.hpp>

void AddAnnotateCommand(CLI::App& app, ToolContext& context);
