#include <QVLib/Security/SecuritySettings.h>

#include <QVLib/Security/UserAccessToken.h>
#include <QVPlatform/OutputLog.h>
#include <algorithm>
#include <utility>

namespace {

constexpr unsigned int RightRefresh = 0x001;
constexpr unsigned int RightConfigure = 0x100;
constexpr const char* Administrator = "root";

} // namespace

void CSecuritySettings::InitialiseForServer(bool addGuest) {
    AddNewUser(Administrator, CSecuritySettingsAccessRights::Full);
    AddAuthenticatedUser(CSecuritySettingsAccessRights::Full);
    if (addGuest)
        AddNewUser("Guest", CSecuritySettingsAccessRights::Full);
}

void CSecuritySettings::InitialiseForCurrentUser() {
    const bool bAdded = AddRightsForCurrentUser(CSecuritySettingsAccessRights::Full);
    AddNewUser(Administrator, CSecuritySettingsAccessRights::Full);
    AddAuthenticatedUser(bAdded ? RightRefresh : CSecuritySettingsAccessRights::Full);
}

void CSecuritySettings::GetAccessRightsForUser(CQVUserAccessToken* token,
                                               CSecuritySettingsAccessRights& rights) const {
    rights.Reset();
    for (const CSecuritySettingsUser* user : m_Users)
        if (token->MatchesUserIdentity(user->GetUserID()))
            rights.Merge(*user);
}

bool CSecuritySettings::IsGuestAccountConfigured() const {
    return std::any_of(m_Users.begin(), m_Users.end(),
                       [](const CSecuritySettingsUser* user) { return user->IsGuestAccount(); });
}

bool CSecuritySettings::CanCurrentUserConfigureSecurity() {
    CQVUserAccessToken token;
    if (!token.SetFromCurrentProcess())
        return false;
    CSecuritySettingsAccessRights rights;
    GetAccessRightsForUser(&token, rights);
    return rights.HasPrivilege(0, RightConfigure);
}

bool CSecuritySettings::operator==(const CSecuritySettings& other) const {
    return std::equal(
        m_Users.begin(), m_Users.end(), other.m_Users.begin(), other.m_Users.end(),
        [](const CSecuritySettingsUser* a, const CSecuritySettingsUser* b) { return *a == *b; });
}

void CSecuritySettings::Print(COutputLog* log) const {
    for (const CSecuritySettingsUser* user : m_Users)
        user->Print(log);
}

CSecuritySettingsUser* CSecuritySettings::AddNewUser(const qvstring& name, unsigned int worldRights) {
    CQVUserIdentity id;
    id.SetFromUserName(name.c_str());
    return AddNewUser(id, worldRights);
}

CSecuritySettingsUser* CSecuritySettings::AddNewUser(const CQVUserIdentity& id, unsigned int worldRights) {
    if (Find(id) != m_Users.end())
        return nullptr;
    return Append(std::make_unique<CSecuritySettingsUser>(id, worldRights));
}

bool CSecuritySettings::RemoveUser(const CQVUserIdentity& id) {
    const auto found = Find(id);
    if (found == m_Users.end())
        return false;
    delete *found;
    m_Users.erase(found);
    return true;
}

bool CSecuritySettings::UpdateUserWorldRights(const CQVUserIdentity& id, unsigned int rights) {
    const auto found = Find(id);
    if (found == m_Users.end())
        return false;
    (*found)->SetWorldRights(rights);
    return true;
}

bool CSecuritySettings::UpdateUserZoneRights(const CQVUserIdentity& id, unsigned int zoneIndex,
                                             unsigned int rights) {
    const auto found = Find(id);
    return found != m_Users.end() && (*found)->SetZoneRights(zoneIndex, rights);
}

bool CSecuritySettings::AddRightsForCurrentUser(unsigned int worldRights) {
    CQVUserIdentity id;
    if (!id.SetFromCurrentUser())
        return false;
    Append(std::make_unique<CSecuritySettingsUser>(id, worldRights));
    return true;
}

void CSecuritySettings::AddAuthenticatedUser(unsigned int worldRights) {
    CQVUserIdentity id;
    id.SetAuthenticatedUser();
    Append(std::make_unique<CSecuritySettingsUser>(id, worldRights));
}

void CSecuritySettings::Clear() {
    for (const CSecuritySettingsUser* user : m_Users)
        delete user;
    m_Users.clear();
}

std::list<CSecuritySettingsUser*>::const_iterator CSecuritySettings::Find(const CQVUserIdentity& id) const {
    return std::find_if(m_Users.begin(), m_Users.end(),
                        [&](const CSecuritySettingsUser* user) { return user->GetUserID() == id; });
}

CSecuritySettingsUser* CSecuritySettings::Append(std::unique_ptr<CSecuritySettingsUser> user) {
    m_Users.push_back(user.get());
    return user.release();
}

// Takes the entries of `loaded` in place of these where they differ; false where they do not.
bool CSecuritySettings::TakeOver(CSecuritySettings& loaded, COutputLog* log) {
    if (loaded == *this) {
        log->Print("... no changes found");
        return false;
    }
    Clear();
    m_Users.swap(loaded.m_Users);
    log->Print("User rights:");
    Print(log);
    return true;
}
