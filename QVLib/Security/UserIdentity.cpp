#include <QVLib/Security/UserIdentity.h>

#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVLib/Security/SecuritySettingsParseContext.h>
#include <QVPlatform/TextOutput.h>
#include <QVPlatform/UserDatabase.h>

namespace {

constexpr const char* GuestName = "Guest";

} // namespace

void CQVUserIdentity::ClearUserIdentity() {
    m_Type = UserIdentityGuest;
    m_Name.clear();
}

bool CQVUserIdentity::SetFromUserName(const char* name) {
    if (name[0] == '*')
        return SetAuthenticatedUser();
    return Set(qvstring(name) == GuestName ? UserIdentityGuest : UserIdentityUser, name);
}

bool CQVUserIdentity::SetFromCurrentUser() {
    qvstring name;
    return QVUserDatabase().FindNameOfCurrentUser(name) && Set(UserIdentityUser, name);
}

bool CQVUserIdentity::SetAuthenticatedUser() {
    return Set(UserIdentityAuthenticated, qvstring());
}

bool CQVUserIdentity::SetGuestUser() {
    ClearUserIdentity();
    return true;
}

void CQVUserIdentity::PrintUserIdentity(CTextOutput& out) const {
    switch (m_Type) {
    case UserIdentityGuest:
        out.Print("%s", GuestName);
        break;
    case UserIdentityAuthenticated:
        out.PrintChar('*');
        break;
    case UserIdentityUser:
        out.Print("%s", m_Name.c_str());
        break;
    case UserIdentityGroup:
        out.Print("@%s", m_Name.c_str());
        break;
    }
}

bool CQVUserIdentity::ParseUserIdentity(CSecuritySettingsParseContext& context) {
    CParseToken token;
    switch (context.GetToken(token)) {
    case '*':
        return SetAuthenticatedUser();
    case '@':
        // The name follows without a blank.
        context.GetNextToken(token);
        if (token.Type() == TokenIdentifier)
            return Set(UserIdentityGroup, token.Text());
        context.LogUnexpectedTokenError(token, "Group ID");
        return false;
    case TokenIdentifier:
        return Set(token.Text() == GuestName ? UserIdentityGuest : UserIdentityUser, token.Text());
    default:
        context.LogUnexpectedTokenError(token, "User ID");
        return false;
    }
}

void CQVUserIdentity::LoadUserIdentity(CBinaryInput& in) {
    ClearUserIdentity();
    unsigned char type;
    in >> type;
    m_Type = static_cast<UserIdentityType>(type);
    in >> m_Name;
}

void CQVUserIdentity::SaveUserIdentity(CBinaryOutput& out) const {
    out << static_cast<unsigned char>(m_Type) << m_Name;
}

bool CQVUserIdentity::Set(UserIdentityType type, const qvstring& name) {
    m_Type = type;
    m_Name = name;
    return true;
}
