#include "Configuration.h"

#include "Sample.h"
#include "Wire.h"

#include <QVLib/Formatting/DecimalFormat.h>
#include <QVLib/Json/JSONParseContext.h>
#include <QVLib/TextStreams/TextInputEncoded.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/FilePath.h>
#include <stdexcept>

namespace {

ValuePointer ReadJson(const CQVFilePath& folder, const char* name, COutputLog& log) {
    CQVFilePath path = folder;
    path.AppendFileName(name);
    if (!path.FileExists())
        return nullptr;
    TextInputFile input;
    if (!input.OpenFile(path))
        throw std::runtime_error("'" + path.GetPath() + "' cannot be read");
    JSONParseContext context(&input, &log);
    ValuePointer value(JSONValue::ParseProperty(context));
    CParseToken rest;
    if (!value || context.GetNextJSONToken(rest) != TokenEndOfFile)
        throw std::runtime_error("'" + path.GetPath() + "' is no JSON");
    return value;
}

[[noreturn]] void Fail(const qvstring& what) {
    throw std::runtime_error("configuration: " + what);
}

// The members of an object; none for what is not there.
const std::vector<JSONValueObject::Member>& MembersOf(const JSONValue* value, const char* what) {
    static const std::vector<JSONValueObject::Member> none;
    const auto* const object = dynamic_cast<const JSONValueObject*>(value);
    if (value != nullptr && object == nullptr)
        Fail(qvstring(what) + " is no object");
    return object == nullptr ? none : object->GetMembers();
}

const std::vector<JSONValue*>& ElementsOf(const JSONValue* value, const char* what) {
    static const std::vector<JSONValue*> none;
    const auto* const array = dynamic_cast<const JSONValueArray*>(value);
    if (value != nullptr && array == nullptr)
        Fail(qvstring(what) + " is no array");
    return array == nullptr ? none : array->GetValues();
}

qvstring TextOf(const JSONValue* value, const qvstring& what) {
    const auto* const text = dynamic_cast<const JSONValueString*>(value);
    if (text == nullptr)
        Fail(what + " is no string");
    return text->GetValue();
}

// What goes to the clients, who take no longer ones.
qvstring ShortTextOf(const JSONValue* value, const qvstring& what) {
    const qvstring text = TextOf(value, what);
    if (text.size() > MaxNameLength)
        Fail(what + " is too long");
    return text;
}

AlarmConfiguration ReadAlarm(const JSONValue* value) {
    AlarmConfiguration alarm;
    for (const auto& [key, member] : MembersOf(value, "an alarm")) {
        const qvstring what = "an alarm's " + key;
        const qvstring text = key == "condition" ? TextOf(member, what) : ShortTextOf(member, what);
        if (key == "name")
            alarm.m_Name = text;
        else if (key == "condition")
            alarm.m_Condition = text;
        else if (key == "colour")
            alarm.m_Colour = text;
        else if (key == "zone" && text.size() == 1 && text[0] >= 'A' && text[0] <= 'D')
            alarm.m_Zone = static_cast<unsigned char>(text[0] - 'A');
        else
            Fail("an alarm's " + key + " cannot be '" + text + "'");
    }
    if (alarm.m_Name.empty() || alarm.m_Condition.empty())
        Fail("an alarm has no name or no condition");
    return alarm;
}

CDataFormatSettings ReadFormats(const qvstring& user, const JSONValue* value) {
    CDataFormatSettings formats;
    qvstring date;
    qvstring time;
    qvstring zone;
    qvstring locale;
    for (const auto& [key, member] : MembersOf(value, "a user")) {
        qvstring* const target = key == "date"     ? &date
                                 : key == "time"   ? &time
                                 : key == "zone"   ? &zone
                                 : key == "locale" ? &locale
                                                   : nullptr;
        if (target == nullptr)
            Fail(user + " has no '" + key + "'");
        *target = TextOf(member, user + "'s " + key);
    }
    formats.InitialiseForCurrentUser(date, time);
    if (!zone.empty() && !formats.m_TimeZone.UseSpecifiedTimeZone(zone))
        Fail("the zone '" + zone + "' is not known");
    if (!locale.empty() && !formats.m_Locale.SetFromLocaleName(locale))
        Fail("'" + locale + "' is no locale");
    return formats;
}

std::size_t FindTag(const qvstring& name) {
    for (std::size_t i = 0; i < TagCount; i++) {
        if (name == Tags[i].m_pName)
            return i;
    }
    Fail("there is no tag '" + name + "'");
}

qvstring ReadPattern(const JSONValue* value) {
    const qvstring pattern = ShortTextOf(value, "a number's pattern");
    TextInputQVString input(pattern, "pattern");
    if (DecimalFormat().ParseDecimalFormat(&input) != 0)
        Fail("'" + pattern + "' is no pattern of numbers");
    return pattern;
}

} // namespace

Configuration::Configuration(const CQVFilePath& folder, COutputLog& log)
    : m_NumberPatterns(TagCount, "0.##") {
    m_DefaultFormats.InitialiseForCurrentUser();
    const ValuePointer file = ReadJson(folder, "plant.json", log);
    for (const auto& [key, value] : MembersOf(file.get(), "plant.json")) {
        if (key == "alarms") {
            for (const JSONValue* const alarm : ElementsOf(value, "alarms"))
                m_Alarms.push_back(ReadAlarm(alarm));
        } else if (key == "users") {
            for (const auto& [user, formats] : MembersOf(value, "users"))
                m_UserFormats[user] = ReadFormats(user, formats);
        } else if (key == "numbers") {
            for (const auto& [name, pattern] : MembersOf(value, "numbers"))
                m_NumberPatterns[FindTag(name)] = ReadPattern(pattern);
        } else {
            Fail("plant.json has no '" + key + "'");
        }
    }
}

const CDataFormatSettings& Configuration::GetFormats(const qvstring& user) const {
    const auto found = m_UserFormats.find(user);
    return found == m_UserFormats.end() ? m_DefaultFormats : found->second;
}

std::map<qvstring, TestUser> ReadTestUsers(const CQVFilePath& folder, COutputLog& log) {
    std::map<qvstring, TestUser> users;
    const ValuePointer file = ReadJson(folder, "users.json", log);
    if (!file)
        Fail("there is no users.json");
    for (const auto& [name, value] : MembersOf(file.get(), "users.json")) {
        TestUser& user = users[name];
        for (const auto& [key, member] : MembersOf(value, "a test user")) {
            if (key == "password")
                user.m_Password = CQVSecureWString(TextOf(member, "a password").c_str());
            else if (key == "groups")
                for (const JSONValue* const group : ElementsOf(member, "groups"))
                    user.m_Groups.insert(TextOf(group, "a group"));
            else
                Fail("a test user has no '" + key + "'");
        }
        if (user.m_Password.IsEmpty())
            Fail("the test user " + name + " has no password");
    }
    return users;
}
