// Configuration - what engineers write down for the plant, in two JSON files of one folder. docs/plant.md describes
// them.
//
// plant.json   alarms, the patterns of numbers, and how users want to see times
// users.json   test users and their passwords, for a server that is told to use it instead of PAM
//
// A file is read once, at the start; what is wrong in it is said in the log, with its place where the JSON itself is
// wrong, and ends the start with a std::runtime_error.
#pragma once

#include <QVLib/Formatting/DataFormatSettings.h>
#include <QVLib/Json/JSONValue.h>
#include <QVPlatform/SecureMemory.h>
#include <map>
#include <memory>
#include <set>
#include <vector>

class COutputLog;
class CQVFilePath;

struct ReleaseValue {
    void operator()(JSONValue* value) const { value->Release(); }
};
using ValuePointer = std::unique_ptr<JSONValue, ReleaseValue>;

struct AlarmConfiguration {
    qvstring m_Name;
    qvstring m_Condition; // JSONata over the names of tags, "sequence" and "second"
    qvstring m_Colour;
    unsigned char m_Zone = 0; // 0 to 3 for A to D
};

struct Configuration {
    // Reads plant.json; a folder without one has no alarms and plain formats.
    Configuration(const CQVFilePath& folder, COutputLog& log);

    // Of a user who has none of their own: the defaults in the server's zone.
    const CDataFormatSettings& GetFormats(const qvstring& user) const;

    std::vector<AlarmConfiguration> m_Alarms;
    std::vector<qvstring> m_NumberPatterns; // one a tag
    std::map<qvstring, CDataFormatSettings> m_UserFormats;
    CDataFormatSettings m_DefaultFormats;
};

struct TestUser {
    CQVSecureWString m_Password;
    std::set<qvstring> m_Groups;
};
std::map<qvstring, TestUser> ReadTestUsers(const CQVFilePath& folder, COutputLog& log);
