#include <QVLib/Security/UserAccessToken.h>

#include <QVPlatform/UserDatabase.h>

bool CQVUserAccessToken::MatchesUserIdentity(const CQVUserIdentity& id) const {
    switch (id.GetType()) {
    case UserIdentityGuest:
        return m_UserIdentity.IsGuestIdentity();
    case UserIdentityAuthenticated:
        return !m_UserIdentity.IsGuestIdentity();
    case UserIdentityUser:
        return id.GetName() == std::string_view(m_UserName.Get(), m_UserName.Length());
    case UserIdentityGroup:
        return m_Groups.count(id.GetName()) != 0;
    }
    return false;
}

void CQVUserAccessToken::SetSpecifiedUser(const CQVSecureWString& name) {
    m_UserIdentity.SetFromUserName(name.Get());
    m_UserName = name;
}

void CQVUserAccessToken::SetGuest() {
    m_UserIdentity.ClearUserIdentity();
    m_UserName = "Guest";
}

bool CQVUserAccessToken::UnixGetUIDFromUserName(const char* name, int& uid) {
    return QVUserDatabase().FindUserId(name, uid);
}
