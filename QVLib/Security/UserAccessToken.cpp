#include <QVLib/Security/UserAccessToken.h>

#include <QVPlatform/UserAuthentication.h>
#include <QVPlatform/UserDatabase.h>

bool CQVUserAccessToken::Logon(const QVUserAuthentication& authentication, const CQVSecureWString& user,
                               const CQVSecureWString& password) {
    if (!authentication.LinuxAuthenticate(user, password, m_LogonErrorCode, m_szLogonError,
                                          sizeof m_szLogonError - 1))
        return false;
    SetSpecifiedUser(user);
    int userId;
    if (!UnixGetUIDFromUserName(user.Get(), userId))
        return true;
    QVUserDatabase database;
    std::vector<unsigned int> groups;
    // The user's number takes the place of the group that is always listed, so the primary group counts only
    // where the group database names the user as its member.
    if (!database.FindGroupsOfUser(user.Get(), static_cast<unsigned int>(userId), groups))
        return true;
    qvstring name;
    for (const unsigned int group : groups)
        if (database.FindGroupName(group, name))
            m_Groups.insert(name);
    return true;
}

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
