// RightsFile - user rights as a command of `qv rights` reads them: from a text or binary file, or from a folder with
// one. Reading changes nothing on the disk.
#pragma once

#include "Diagnostics.h"

#include <QVLib/Security/SecuritySettings.h>
#include <string>

class RightsFile {
public:
    // Reads a file. What is wrong with it goes to the report; what of it could be understood is there.
    // Throws a ToolError for a file that cannot be read at all.
    RightsFile(const std::string& path, Report& report);
    // The file of a folder that a program would read at its start: the text, else the binary one. A path that is no
    // folder is taken as the file.
    static std::string FindIn(const std::string& path);

    const std::string& GetPath() const { return m_Path; }
    const CSecuritySettings& GetSettings() const { return m_Settings; }
    // Warnings and errors.
    bool HasFindings() const { return m_bFindings; }

private:
    void ReadText(Diagnostics& diagnostics);
    void ReadBinary(Diagnostics& diagnostics);
    void JudgeAccess(Diagnostics& diagnostics);

    const std::string m_Path;
    CSecuritySettings m_Settings;
    bool m_bFindings = false;
};

// "@operators", and "World=Refresh, ZoneA=Write".
std::string TextOf(const CQVUserIdentity& identity);
std::string TextOf(const CSecuritySettingsAccessRights& rights);
// "Refresh+Write"
std::string MaskText(unsigned int mask);
