// The entries as text and as bytes.
#include "ZoneMasks.h"
#include <QVLib/Security/SecuritySettings.h>
#include <QVLib/Security/SecuritySettingsParseContext.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutputToOutputLog.h>
#include <memory>

namespace {

constexpr unsigned short BinaryVersion = 1;

// Goes on behind an entry that was not understood. The ';' of its end is sought among the bare tokens, where
// one in a comment counts too.
bool SkipEntry(CSecuritySettingsParseContext& context) {
    CParseToken token;
    context.SkipToBeforeToken(';');
    context.GetToken(token);
    return false;
}

} // namespace

void CSecuritySettingsUser::Print(COutputLog* log) const {
    CTextOutputToOutputLog out(log);
    m_UserID.PrintUserIdentity(out);
    out.Print(": ");
    PrintRights(out);
    out.PrintLine();
}

void CSecuritySettingsUser::SaveAsText(CTextOutput& out) const {
    m_UserID.PrintUserIdentity(out);
    out.Print(": ");
    PrintRights(out);
    out.PrintLine(";");
}

bool CSecuritySettingsUser::Parse(CSecuritySettingsParseContext& context) {
    if (!m_UserID.ParseUserIdentity(context))
        return SkipEntry(context);
    CParseToken token;
    if (context.GetToken(token) != ':') {
        context.LogUnexpectedTokenError(token, ":");
        return token.Type() != ';' && SkipEntry(context);
    }
    if (!ParseRights(context))
        return SkipEntry(context);
    if (context.GetToken(token) != ';') {
        context.LogUnexpectedTokenError(token, ";");
        return SkipEntry(context);
    }
    return true;
}

bool CSecuritySettingsUser::IsTextReadable() const {
    CTextOutputString text;
    SaveAsText(text);
    TextInputQVString input(text.GetString(), qvstring());
    COutputLogNull log;
    CSecuritySettingsParseContext context(&input, &log);
    CSecuritySettingsUser parsed;
    CParseToken rest;
    if (!parsed.Parse(context) || context.GetToken(rest) != TokenEndOfFile)
        return false;
    if (IsGuestAccount() && parsed.IsGuestAccount())
        parsed.m_UserID = m_UserID;
    return parsed == *this;
}

void CSecuritySettingsUser::LoadBinary(CBinaryInput& in) {
    int zoneCount;
    m_UserID.LoadUserIdentity(in);
    in >> m_WorldRights >> zoneCount;
    LoadZoneMasks(in, zoneCount > 0 ? static_cast<unsigned int>(zoneCount) : 0, *this);
}

void CSecuritySettingsUser::SaveBinary(CBinaryOutput& out) const {
    m_UserID.SaveUserIdentity(out);
    out << m_WorldRights << static_cast<int>(ZoneCount);
    SaveZoneMasks(out, *this);
}

void CSecuritySettings::ParseText(CSecuritySettingsParseContext& context) {
    CParseToken token;
    while (context.GetToken(token) != TokenEndOfFile) {
        context.ReplaceToken(std::move(token));
        auto user = std::make_unique<CSecuritySettingsUser>();
        if (user->Parse(context))
            Append(std::move(user));
    }
}

void CSecuritySettings::SaveAsText(CTextOutput& out) const {
    for (const CSecuritySettingsUser* user : m_Users)
        user->SaveAsText(out);
}

bool CSecuritySettings::LoadBinary(CBinaryInput& in) {
    unsigned short version;
    in >> version;
    if (version != BinaryVersion)
        return false;
    unsigned int count;
    in >> count;
    for (unsigned int i = 0; i < count; ++i)
        Append(std::make_unique<CSecuritySettingsUser>())->LoadBinary(in);
    return true;
}

void CSecuritySettings::SaveBinary(CBinaryOutput& out) const {
    out << BinaryVersion << static_cast<unsigned int>(m_Users.size());
    for (const CSecuritySettingsUser* user : m_Users)
        user->SaveBinary(out);
}
