// CQVUserAccessToken - a user who has logged on, and the question whether an identity means this user.
//
//     CQVUserAccessToken token;
//     if (!token.Logon(authentication, user, password))
//         return token.m_szLogonError;
//     settings.GetAccessRightsForUser(&token, rights);
//
// A client that has not logged on is given the token of SetGuest().
//
// Waiting:   Logon() asks the system's authentication, which lets a caller with a wrong password wait for
//            seconds, and the name service. Do not call it where others wait for the thread.
// Secrets:   no copy of the password is made here; the user's name is wiped from memory with the token.
// Names:     rights and groups go by the name that was typed. Where the system's authentication exchanges a
//            user for another, that is not the account whose password was asked: do not let it do so for
//            names that the user rights know.
// Groups:    those whose list of members has the user, and the group whose number is the user's own, which is what
//            systems make that give each user a group. The primary group of the password database counts only if
//            it is one of these. Logging on again adds the groups of the new user to those that are there: use a
//            new token for each user.
// Threads:   one thread at a time.
#pragma once

#include <QVLib/Security/UserIdentity.h>
#include <QVPlatform/SecureMemory.h>
#include <set>

class QVUserAuthentication;

class CQVUserAccessToken {
public:
    // Checks the password; when it is right, the token is that user's, with the names of all groups that the
    // system knows the user to be in. A user or a group without an entry in the system's databases has no
    // groups, or no name; the logon succeeds all the same. False leaves the platform's code and text of what
    // went wrong in the token and everything else as it was.
    bool Logon(const QVUserAuthentication& authentication, const CQVSecureWString& user,
               const CQVSecureWString& password);

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
