#include "Bytes.h"

#include "Help.h"
#include "InputText.h"
#include "Output.h"

#include <CLI/CLI.hpp>
#include <QVLib/BinaryStreams/Base64.h>
#include <QVLib/BinaryStreams/BinaryInputFromTextInput.h>
#include <QVLib/BinaryStreams/BinaryOutputToTextOutput.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVLib/Utilities/Crc16.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/TextOutput.h>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr std::size_t ChunkSize = 64U << 10;

template<class Function>
void ForEachChunk(const std::string& path, Function function) {
    InputFile file(path);
    std::vector<char> chunk(ChunkSize);
    while (const std::size_t count = file.Read(chunk.data(), chunk.size()))
        function(chunk.data(), static_cast<unsigned int>(count));
}

struct DumpOptions {
    std::string m_File = "-";
    bool m_bBase64 = false;
    bool m_bBack = false;
};

void Dump(const DumpOptions& options) {
    CTextOutputString text;
    BinaryOutputToTextOutput dump(BinaryStringLengthNotAllowed, text,
                                  options.m_bBase64 ? TextToBinaryBase64 : TextToBinaryHex, true);
    bool bAny = false;
    ForEachChunk(options.m_File, [&](const char* data, unsigned int count) {
        dump.Write(data, count);
        WriteStandardOutput(text.GetString());
        text.Clear();
        bAny = true;
    });
    dump.FlushFinalOutput();
    if (bAny)
        text.PrintLine();
    WriteStandardOutput(text.GetString());
}

// Digits that are left over, or bytes that stand between the digits and are no separators, are no dump.
ExitCode BytesFromHexadecimal(const std::string& text) {
    const std::size_t odd = text.find_first_not_of("0123456789abcdefABCDEF \t\r\n:-,");
    if (odd != std::string::npos) {
        SayError("byte " + std::to_string(odd + 1) + ": " + Quoted(text.substr(odd, 1)) +
                 " is no hexadecimal digit and no separator");
        return ExitFindings;
    }
    TextInputQVString input(text, "");
    CBinaryInputFromTextInput binary(BinaryStringLengthNotAllowed, &input, TextToBinaryHex);
    std::string bytes;
    while (!binary.IsEOF()) {
        char byte;
        if (!binary.TryRead(&byte, 1)) {
            SayError("the last byte has only one digit");
            return ExitFindings;
        }
        bytes += byte;
    }
    WriteStandardOutput(bytes);
    return ExitDone;
}

ExitCode BytesFromBase64(std::string text) {
    std::erase_if(text, [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
    std::string bytes(text.size() / 4 * 3, 0);
    unsigned int written;
    if (!CBase64::DecodeBase64(text, reinterpret_cast<unsigned char*>(bytes.data()),
                               static_cast<unsigned int>(bytes.size()), written)) {
        SayError(text.size() % 4 != 0
                     ? "the text ends within a group of four characters"
                     : "the group of four characters behind " + CountText(written, "byte") + " is no Base64");
        return ExitFindings;
    }
    bytes.resize(written);
    WriteStandardOutput(bytes);
    return ExitDone;
}

struct CrcOptions {
    std::vector<std::string> m_Files;
    unsigned int m_Initial = 0xFFFF;
};

ExitCode PrintChecks(const CrcOptions& options, OutputFormat format) {
    LineWriter writer(format,
                      {{"file", Column::Text}, {"crc", Column::Number}, {"low_byte_first", Column::Text}});
    for (const std::string& file : options.m_Files) {
        CCrc16 crc(static_cast<unsigned short>(options.m_Initial));
        ForEachChunk(file, [&](const char* data, unsigned int count) {
            crc.AddBytes(reinterpret_cast<const unsigned char*>(data), count);
        });
        char text[64];
        if (writer.IsForPeople()) {
            qv_sprintf(text, sizeof text, "%04X  ", crc.GetValue());
            writer.AddLine(text + file);
        } else {
            qv_sprintf(text, sizeof text, "%02X %02X", crc.GetLowByte(), crc.GetHighByte());
            writer.GetTable().AddText(file);
            writer.GetTable().AddUnsigned(crc.GetValue());
            writer.GetTable().AddText(text);
            writer.GetTable().EndRow();
        }
    }
    writer.Finish();
    return ExitDone;
}

} // namespace

void AddBytesCommands(CLI::App& app, ToolContext& context) {
    CLI::App* const dump =
        app.add_subcommand("dump", "Print a file's bytes as text, and make a file of such text");
    const auto dumpOptions = std::make_shared<DumpOptions>();
    dump->add_option("FILE", dumpOptions->m_File, "file, or - for the standard input (default)");
    dump->add_flag("--base64", dumpOptions->m_bBase64, "digits of Base64 instead of hexadecimal ones");
    dump->add_flag("--back", dumpOptions->m_bBack, "read the text and write the bytes");
    SetExample(*dump, "qv dump config.json");
    dump->callback([dumpOptions, &context] {
        if (!dumpOptions->m_bBack)
            Dump(*dumpOptions);
        else if (dumpOptions->m_bBase64)
            context.m_ExitCode = BytesFromBase64(InputFile(dumpOptions->m_File).ReadAll());
        else
            context.m_ExitCode = BytesFromHexadecimal(InputFile(dumpOptions->m_File).ReadAll());
    });

    CLI::App* const crc =
        app.add_subcommand("crc16", "Print the check value that field buses use (CRC-16/MODBUS)");
    const auto crcOptions = std::make_shared<CrcOptions>();
    crc->add_option("FILE", crcOptions->m_Files, "files, or - for the standard input")->required();
    crc->add_option("--initial", crcOptions->m_Initial, "the value to begin with (default: 0xFFFF)")
        ->check(CLI::Range(0, 0xFFFF));
    SetExample(*crc, "qv crc16 config.json");
    crc->callback(
        [crcOptions, &context] { context.m_ExitCode = PrintChecks(*crcOptions, context.m_Format); });
}
