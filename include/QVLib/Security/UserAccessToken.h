// CQVUserAccessToken - a user who has logged on, and the question whether an identity means this user.
//
// A client that has not logged on is given the token of SetGuest().
//
// Threads:   one thread at a time.
#pragma once

#include <QVLib/Security/UserIdentity.h>
#include <QVPlatform/SecureMemory.h>
#include <set>

class CQVUserAccessToken {
public:
    // By the kind of `id`: the guest, for a token that is the guest; authenticated users, for one that is
    // not; a user of the very name under which this one logged on; a group that this one is in.
    bool MatchesUserIdentity(const CQVUserIdentity& id) const;

    // A user whom somebody else has authenticated: nothing is checked. Groups stay as they are.
    void SetSpecifiedUser(const CQVSecureWString& name);
    // The guest, called "Guest". Groups stay as they are.
    void SetGuest();
    // Always false, and nothing changed: the system does not tell whether the user behind a process has
    // logged on.
    bool SetFromCurrentProcess() { return false; }

    // The number of a user in the password database; false, and `uid` left alone, when there is none.
    bool UnixGetUIDFromUserName(const char* name, int& uid);

    CQVSecureWString m_UserName; // as typed
    CQVUserIdentity m_UserIdentity;
    int m_LogonErrorCode = 0;      // of the last failed logon
    char m_szLogonError[256] = {}; // its text
    std::set<qvstring> m_Groups;
};
