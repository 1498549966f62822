// Reads the user rights that an engineer wrote, shows what was not understood, and answers who may do what. Then
// the file is edited while the program runs.
#include <QVLib/Security/ClientAccessContext.h>
#include <QVLib/Security/SecuritySettings.h>
#include <QVLib/Security/UserAccessToken.h>
#include <QVPlatform/FilePath.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutputFile.h>
#include <cstdio>

constexpr unsigned int kWrite = 0x002;
constexpr unsigned char kZoneA = 0;
constexpr unsigned char kZoneB = 1;

class LogToScreen : public COutputLog {
public:
    void Clear() override {}
    bool AppendMessage(LogType, int, const char* text, unsigned int length) override {
        return std::printf("  %.*s\n", static_cast<int>(length), text) >= 0;
    }
};

// What an editor does.
bool Edit(const CQVFilePath& path, const char* text) {
    CTextOutputFile file;
    if (!file.OpenTextFileForReplace(path)) {
        return false;
    }
    file.WriteString(text);
    return file.CloseTextFile();
}

// What a server does when somebody has logged on: the rights become those of the connected client.
void Show(const CSecuritySettings& settings, CQVUserAccessToken& token) {
    CClientAccessContext client("192.0.2.7");
    settings.GetAccessRightsForUser(&token, client);
    CTextOutputString rights;
    client.PrintRights(rights);
    std::printf("%s: %s; may write in zone A: %s, in zone B: %s\n", token.m_UserName.Get(), rights.GetCStr(),
                client.HasPrivilege(kZoneA, kWrite) ? "yes" : "no",
                client.HasPrivilege(kZoneB, kWrite) ? "yes" : "no");
}

int main() {
    const CQVFilePath folder(".");
    CQVFilePath path = folder;
    path.AppendFileName(CSecuritySettings::FileName);
    LogToScreen log;
    if (!Edit(path, "# Control room\n"
                    "@operators: World=Refresh, ZoneA=Write+Acknowledge;\n"
                    "maria: ZoneB=Write;\n"
                    "tom: World=Wrote;\n"
                    "Guest: World=Refresh;\n")) {
        return 1;
    }

    CSecuritySettings settings;
    std::printf("Start-up:\n");
    settings.InitialiseSecuritySettings(folder, true, false, &log);

    // A real program gets its tokens from CQVUserAccessToken::Logon().
    CQVUserAccessToken maria;
    maria.SetSpecifiedUser(CQVSecureWString("maria"));
    maria.m_Groups = {"operators", "maria"};
    CQVUserAccessToken guest;
    guest.SetGuest();
    Show(settings, maria);
    Show(settings, guest);

    // The fault is mended, and tom gets what was meant. A file with a fault would have changed nothing.
    bool changed = false;
    std::printf("Edited:\n");
    if (!Edit(path, "maria: World=Full;\ntom: World=Write;\n") ||
        !settings.LoadTextFile(path, changed, &log) || !changed) {
        return 1;
    }
    Show(settings, maria);
    Show(settings, guest);
    return 0;
}
