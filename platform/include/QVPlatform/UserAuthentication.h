// QVUserAuthentication - asks the operating system whether a password is a user's (on Linux: PAM).
//
//     QVUserAuthentication authentication;
//     int errorCode;
//     char errorText[256];
//     if (!authentication.LinuxAuthenticate(user, password, errorCode, errorText, sizeof errorText))
//         log->PrintError("%s", errorText);
//
// What is asked: the password is right, it is not empty, and the account may be used now (not expired, not
//           locked, the password not due to be changed). Both questions go to a service of the system's
//           configuration, /etc/pam.d/qvlib unless another is named; without such a file PAM takes "other", which
//           on Debian asks for the password and on systems that deny by default refuses everybody.
// Dialogue: a module that asks without echo gets the password, one that asks with echo gets the user; any
//           other kind of question makes the logon fail. What modules have to say is collected, never printed;
//           control characters in it become blanks.
// Time:     a failed logon takes seconds, on purpose: most stacks delay it, so that nobody can try many
//           passwords. A directory server may take as long to answer a good one. Never call this in an event
//           loop or under a lock that others wait for.
// Secrets:  the copies of the password made here are wiped; those that PAM holds are PAM's to wipe, when the call
//           returns. Nothing of it gets into texts.
// Rights:   checking another user's password in the system's own user file takes root or a helper of PAM.
// Threads:  any number, each call with a dialogue of its own, if the modules of the stack allow that.
#pragma once

#include <QVPlatform/String.h>

class CQVSecureWString;

class QVUserAuthentication {
public:
    // What came of a logon.
    struct Result {
        int m_ErrorCode = 0;   // PAM's number; 0 is success
        qvstring m_ErrorText;  // what went wrong, with the modules' own words for it; UTF-8
        qvstring m_SystemUser; // whose account the password opened; only after success
        qvstring m_Messages;   // what the modules said, a line each, also at success; UTF-8
    };

    static const char* const DefaultService; // "qvlib"

    QVUserAuthentication();
    // `service` names a file in /etc/pam.d.
    explicit QVUserAuthentication(const qvstring& service);

    const qvstring& GetService() const { return m_Service; }

    // True when `password` is right for `user` and the account may be used. Otherwise `errorCode` is PAM's number
    // and `errorText` its text: UTF-8, cut between characters, terminated, within `errorTextSize` bytes (with 0
    // nothing is written, and the pointer may be null). After success both are as they were before.
    // Refused without asking PAM: a user or a password that is empty, has a zero inside or is too long for
    // PAM (511 bytes), and a user with a control character. Such a refusal takes no time.
    bool LinuxAuthenticate(const CQVSecureWString& user, const CQVSecureWString& password, int& errorCode,
                           char* errorText, unsigned int errorTextSize) const;

    // The same with all that PAM told. A module may exchange the user for another, a directory's alias for
    // the account, say: m_SystemUser is the one that the stack ended with and whose account was checked; a
    // stack that ends with nobody has failed.
    bool Authenticate(const CQVSecureWString& user, const CQVSecureWString& password, Result& result) const;

private:
    qvstring m_Service;
};
