#include "RightsFile.h"

#include <QVLib/BinaryStreams/BinaryFile.h>
#include <QVLib/Security/SecuritySettingsParseContext.h>
#include <QVLib/TextStreams/TextInputEncoded.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/TextOutput.h>
#include <cstdio>
#include <exception>
#include <filesystem>

namespace {

constexpr const char* BinaryFileName = "Rights.qvusr";

bool Exists(const std::string& path) {
    return CQVFilePath(path).FileExists();
}

std::string Below(const std::string& folder, const char* name) {
    CQVFilePath path(folder);
    path.AppendFileName(name);
    return path.GetPath();
}

[[noreturn]] void FailToRead(const std::string& path, const CQVError& error) {
    throw ToolError(ExitInputOutput, path + " cannot be read: " + ErrorText(error.GetLastError()));
}

// The binary form begins with its version, 1 in two bytes, which no text does.
bool IsBinary(const std::string& path) {
    QVFileUnix file(false);
    unsigned char start[2] = {};
    unsigned int got = 0;
    if (!file.OpenFileForRead(CQVFilePath(path), false) || !file.ReadBytes(start, sizeof start, got))
        FailToRead(path, file);
    return got == 2 && start[0] < 9 && start[1] == 0;
}

} // namespace

std::string TextOf(const CQVUserIdentity& identity) {
    CTextOutputString text;
    identity.PrintUserIdentity(text);
    return text.GetString();
}

std::string TextOf(const CSecuritySettingsAccessRights& rights) {
    CTextOutputString text;
    rights.PrintRights(text);
    return text.GetString();
}

std::string MaskText(unsigned int mask) {
    char buffer[256];
    std::string text = CSecuritySettingsAccessRights::RightsMaskText(mask, buffer);
    unsigned int named = 0;
    for (unsigned int i = 0; i < g_UserRightsMetadataLength; ++i)
        named |= g_UserRightsMetadata[i].m_Mask;
    if (mask != CSecuritySettingsAccessRights::Full && (mask & ~named) != 0) {
        std::snprintf(buffer, sizeof buffer, "%s0x%X", text.empty() ? "" : "+", mask & ~named);
        text += buffer;
    }
    return text;
}

RightsFile::RightsFile(const std::string& path, Report& report) : m_Path(path) {
    Diagnostics diagnostics(report, path);
    const unsigned long long before = report.GetCount();
    if (IsBinary(path))
        ReadBinary(diagnostics);
    else
        ReadText(diagnostics);
    JudgeAccess(diagnostics);
    m_bFindings = report.GetCount() != before;
}

std::string RightsFile::FindIn(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_directory(path, error)) {
        if (!Exists(path))
            throw ToolError(ExitInputOutput, path + " is not there");
        return path;
    }
    for (const char* const name : {CSecuritySettings::FileName, BinaryFileName}) {
        if (const std::string file = Below(path, name); Exists(file))
            return file;
    }
    throw ToolError(ExitInputOutput, "No user rights in " + Quoted(path) + "; 'qv rights init' makes some");
}

void RightsFile::ReadText(Diagnostics& diagnostics) {
    TextInputFile file;
    if (!file.OpenFile(CQVFilePath(m_Path)))
        FailToRead(m_Path, file);
    std::string text;
    file.ReadAllInput(text);
    if (file.GetLastError() != 0)
        FailToRead(m_Path, file);
    diagnostics.SetText(text);
    TextInputQVString input(text, m_Path);
    CSecuritySettingsParseContext context(&input, &diagnostics);
    m_Settings.ParseText(context);
    if (const std::size_t zero = text.find('\0'); zero != std::string::npos)
        diagnostics.AddMessage(COutputLog::Error, diagnostics.Locate(zero),
                               "A zero byte ends the text here; what follows is not read.");
}

void RightsFile::ReadBinary(Diagnostics& diagnostics) {
    CBinaryInputFile file(BinaryStringLengthUTF8Character);
    if (!file.OpenBinaryFile(CQVFilePath(m_Path)))
        FailToRead(m_Path, file);
    try {
        if (!m_Settings.LoadBinary(file))
            diagnostics.AddMessage(COutputLog::Error, {}, "The binary form has an unknown version.");
    } catch (const std::exception& error) {
        diagnostics.AddMessage(COutputLog::Error, {},
                               std::string("The binary form is cut or damaged: ") + error.what());
    }
    for (const CSecuritySettingsUser* const user : m_Settings.m_Users) {
        if (!user->IsTextReadable())
            diagnostics.AddMessage(COutputLog::Error, {},
                                   "The entry of " + Quoted(TextOf(user->GetUserID())) +
                                       " cannot be read back from a text file.");
    }
}

void RightsFile::JudgeAccess(Diagnostics& diagnostics) {
    using std::filesystem::perms;
    std::error_code error;
    const perms mode = std::filesystem::status(m_Path, error).permissions();
    if (error)
        return;
    for (const auto& [bit, who] : {std::pair{perms::group_write, "The file's group"},
                                   std::pair{perms::others_write, "Everybody on this machine"}}) {
        if ((mode & bit) != perms::none)
            diagnostics.AddMessage(COutputLog::Warning, {}, std::string(who) + " may write the file.");
    }
}
