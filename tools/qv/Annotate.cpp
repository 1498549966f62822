#include "Annotate.h"

#include "Help.h"
#include "InputText.h"
#include "Output.h"

#include <CLI/CLI.hpp>
#include <QVLib/Presentation/CodeAnnotations.h>
#include <memory>
#include <string>

namespace {

using Annotation = CCodeAnnotations::Annotation;

const char* SeverityText(int severity) {
    switch (severity) {
    case CCodeAnnotations::SeverityWarning:
        return "warning";
    case CCodeAnnotations::SeverityError:
        return "error";
    default:
        return "information";
    }
}

void PrintForPeople(const CCodeAnnotations& annotations) {
    std::string text;
    for (const auto& [module, list] : annotations.GetAnnotations()) {
        text += module + "\n";
        for (const Annotation& annotation : list) {
            text += "  " + std::to_string(annotation.m_StartLine) + ":" +
                    std::to_string(annotation.m_StartColumn);
            if (annotation.m_EndLine != annotation.m_StartLine ||
                annotation.m_EndColumn != annotation.m_StartColumn)
                text +=
                    "-" + std::to_string(annotation.m_EndLine) + ":" + std::to_string(annotation.m_EndColumn);
            text += std::string("  ") + SeverityText(annotation.m_Severity);
            if (annotation.m_Number != 0)
                text += " " + std::to_string(annotation.m_Number);
            text += ":" + annotation.m_Message + "\n";
        }
    }
    WriteStandardOutput(text);
}

void PrintTable(const CCodeAnnotations& annotations, OutputFormat format) {
    TableWriter table(format, {{"module", Column::Text},
                               {"line", Column::Number},
                               {"column", Column::Number},
                               {"end_line", Column::Number},
                               {"end_column", Column::Number},
                               {"severity", Column::Text},
                               {"number", Column::Number},
                               {"message", Column::Text}});
    for (const auto& [module, list] : annotations.GetAnnotations()) {
        for (const Annotation& annotation : list) {
            table.AddText(module);
            table.AddInteger(annotation.m_StartLine);
            table.AddInteger(annotation.m_StartColumn);
            table.AddInteger(annotation.m_EndLine);
            table.AddInteger(annotation.m_EndColumn);
            table.AddText(SeverityText(annotation.m_Severity));
            table.AddInteger(annotation.m_Number);
            table.AddText(annotation.m_Message);
            table.EndRow();
        }
    }
    table.Finish();
}

bool HasErrors(const CCodeAnnotations& annotations) {
    for (const auto& [module, list] : annotations.GetAnnotations()) {
        for (const Annotation& annotation : list) {
            if (annotation.m_Severity == CCodeAnnotations::SeverityError)
                return true;
        }
    }
    return false;
}

ExitCode AnnotateFile(const std::string& path, OutputFormat format) {
    CCodeAnnotations annotations;
    InputFile file(path);
    InputLines lines(file);
    std::string_view line;
    bool bTooLong;
    while (lines.Next(line, bTooLong))
        annotations.AppendMessage(COutputLog::Information, 0, line.data(),
                                  static_cast<unsigned int>(line.size()));
    if (format == OutputFormat::Human)
        PrintForPeople(annotations);
    else
        PrintTable(annotations, format);
    return HasErrors(annotations) ? ExitFindings : ExitDone;
}

} // namespace

void AddAnnotateCommand(CLI::App& app, ToolContext& context) {
    CLI::App* const annotate =
        app.add_subcommand("annotate", "File compilers' messages under the sources that they are about");
    const auto path = std::make_shared<std::string>("-");
    annotate->add_option(
        "FILE", *path, "lines such as 'Plant/Logic(12,5-9): error 906: text' (default: the standard input)");
    SetExample(*annotate, "qv annotate build.log");
    annotate->callback([path, &context] { context.m_ExitCode = AnnotateFile(*path, context.m_Format); });
}
