// The files of the user rights, and which of them counts at start-up.
#include <QVLib/BinaryStreams/BinaryFile.h>
#include <QVLib/Security/SecuritySettings.h>
#include <QVLib/Security/SecuritySettingsParseContext.h>
#include <QVLib/TextStreams/TextInputEncoded.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutputFile.h>
#include <cerrno>

namespace {

constexpr const char* BinaryFileName = "Rights.qvusr";
constexpr unsigned int NewFileMode = 0640;

void LogError(const CQVError& failed, COutputLog* log) {
    char text[256];
    failed.GetLastErrorString(text, sizeof text);
    log->PrintError("... error %d: %s", failed.GetLastError(), text);
}

// A file that is not there needs no explanation; any other reason is the system's to tell.
bool IsAbsent(const CQVError& failed) {
    return failed.GetLastError() == ENOENT;
}

void LogOpeningError(const CQVError& failed, COutputLog* log) {
    if (!IsAbsent(failed))
        LogError(failed, log);
}

// True when all of the text was read and understood.
bool ParseFile(CSecuritySettings& settings, TextInputFile& input, COutputLog* log) {
    CSecuritySettingsParseContext context(&input, log);
    settings.ParseText(context);
    int codePoint;
    if (input.ReadCodePoint(codePoint))
        log->PrintError("... the text ends at a zero byte, what follows is not read");
    if (input.GetLastError() == 0)
        return context.GetErrorCount() == 0;
    LogError(input, log);
    return false;
}

void WarnOfUnreadableEntries(const CSecuritySettings& settings, COutputLog* log) {
    for (const CSecuritySettingsUser* user : settings.m_Users)
        if (!user->IsTextReadable()) {
            const qvstring text =
                "... the entry of '" + user->GetUserID().GetName() + "' will not be read back as it is";
            log->AppendMessage(COutputLog::Warning, 0, text.data(), static_cast<unsigned int>(text.size()));
        }
}

} // namespace

const char* const CSecuritySettings::FileName = "user-rights.conf";

void CSecuritySettings::InitialiseSecuritySettings(const CQVFilePath& folder, bool forServer, bool addGuest,
                                                   COutputLog* log) {
    log->Print("InitializeSecuritySettings: %s", folder.GetPathCStr());
    CQVFilePath textPath = folder;
    textPath.AppendFileName(FileName);
    TextInputFile input;
    if (input.OpenFile(textPath)) {
        log->Print("Reading '%s'...", textPath.GetPathCStr());
        ParseFile(*this, input, log);
        return;
    }
    const bool bAbsent = IsAbsent(input);
    if (!bAbsent) {
        log->PrintError("... could not open file '%s'.", textPath.GetPathCStr());
        LogError(input, log);
    }
    CQVFilePath binaryPath = folder;
    binaryPath.AppendFileName(BinaryFileName);
    log->Print("Reading '%s'...", binaryPath.GetPathCStr());
    bool bChanged;
    if (!LoadBinaryFile(binaryPath, bChanged, log)) {
        log->Print("Create default user rights.");
        if (forServer)
            InitialiseForServer(addGuest);
        else
            InitialiseForCurrentUser();
    }
    // A text that nobody may read now is still what an engineer wrote.
    if (bAbsent)
        SaveTextFile(textPath, log);
    else
        log->PrintError("'%s' is left as it is.", textPath.GetPathCStr());
}

bool CSecuritySettings::LoadTextFile(const CQVFilePath& path, bool& changed, COutputLog* log) {
    changed = false;
    log->Print("Loading file '%s'...", path.GetPathCStr());
    CSecuritySettings loaded;
    if (!loaded.ParseTextFile(path, log))
        return false;
    changed = TakeOver(loaded, log);
    return true;
}

bool CSecuritySettings::ParseTextFile(const CQVFilePath& path, COutputLog* log) {
    TextInputFile input;
    if (!input.OpenFile(path)) {
        log->PrintError("... could not open file.");
        LogOpeningError(input, log);
        return false;
    }
    return ParseFile(*this, input, log);
}

bool CSecuritySettings::SaveTextFile(const CQVFilePath& path, COutputLog* log) const {
    log->Print("Saving file '%s'...", path.GetPathCStr());
    CTextOutputFile out;
    if (!out.OpenTextFileForReplace(path, NewFileMode)) {
        log->Print("Error opening file");
        LogOpeningError(out, log);
        return false;
    }
    SaveAsText(out);
    WarnOfUnreadableEntries(*this, log);
    if (!out.CloseTextFile()) {
        LogError(out, log);
        return false;
    }
    return true;
}

bool CSecuritySettings::LoadBinaryFile(const CQVFilePath& path, bool& changed, COutputLog* log) {
    changed = false;
    log->Print("Loading file '%s'...", path.GetPathCStr());
    CBinaryInputFile input(BinaryStringLengthUTF8Character);
    if (!input.OpenBinaryFile(path)) {
        log->Print("... could not open file.");
        LogOpeningError(input, log);
        return false;
    }
    CSecuritySettings loaded;
    if (!loaded.LoadBinary(input)) {
        log->Print("... invalid file format");
        return false;
    }
    changed = TakeOver(loaded, log);
    return true;
}

bool CSecuritySettings::SaveBinaryFile(const CQVFilePath& path, COutputLog* log) const {
    log->Print("Saving file '%s'...", path.GetPathCStr());
    CBinaryOutputFile out(BinaryStringLengthUTF8Character);
    if (!out.OpenTransacted(path, NewFileMode)) {
        log->Print("Error opening file");
        LogOpeningError(out, log);
        return false;
    }
    SaveBinary(out);
    COutputLogNull steps;
    if (!out.CloseAndCommitTransactedFile(&steps)) {
        LogError(out, log);
        return false;
    }
    return true;
}
