// CQVUserIdentity - whom an entry of the user rights is for.
//
//     kind            text      matches
//     guest           Guest     a client that has not logged on
//     authenticated   *         everybody who has
//     user            bob       the user of this name
//     group           @ops      every member of the group of this name
//
// Equality: kind and name, byte by byte. Cleared or set with SetGuestUser(), a guest has no name; set from the
//           name "Guest" or parsed, it is called "Guest". The two are different identities, and both match the
//           guest.
// Names:    any text can be set, stored in binary form and printed. Only a name of letters and digits that
//           starts with a letter can be parsed back; "john.doe" cannot (CSecuritySettingsUser::IsTextReadable()).
// Errors:   parsing reports to the parse context and returns false. Loading throws what CBinaryInput throws; it
//           takes any byte for the kind, and kinds that are not in the table match nobody and have no text.
// Threads:  a plain value; one thread at a time.
#pragma once

#include <QVPlatform/String.h>

class CBinaryInput;
class CBinaryOutput;
class CSecuritySettingsParseContext;
class CTextOutput;

// Stored in files: never renumber.
enum UserIdentityType : int {
    UserIdentityGuest = 0,
    UserIdentityAuthenticated = 1,
    UserIdentityUser = 2,
    UserIdentityGroup = 3,
};

class CQVUserIdentity {
public:
    // The guest without a name.
    CQVUserIdentity() = default;
    CQVUserIdentity(const CQVUserIdentity&) = default;
    CQVUserIdentity& operator=(const CQVUserIdentity&) = default;
    ~CQVUserIdentity() { ClearUserIdentity(); }

    // The guest without a name again.
    void ClearUserIdentity();

    // Always true: every identity means somebody, or nobody, and neither is an error.
    bool IsValidUserIdentity() const { return true; }
    bool IsGuestIdentity() const { return m_Type == UserIdentityGuest; }
    UserIdentityType GetType() const { return m_Type; }
    // Empty for authenticated users.
    const qvstring& GetName() const { return m_Name; }

    // Setting. True unless it says otherwise.

    // A name that starts with '*' stands for every authenticated user, whatever follows; "Guest", in this very
    // spelling, for the guest; any other for the user so called.
    bool SetFromUserName(const char* name);
    // The user whose rights this process has; false, and nothing changed, when the system does not know one.
    bool SetFromCurrentUser();
    bool SetAuthenticatedUser();
    bool SetGuestUser();

    bool operator==(const CQVUserIdentity& other) const = default;

    // Writes the text of the table above. A group without a name is "@"; a kind that is not in the table
    // writes nothing.
    void PrintUserIdentity(CTextOutput& out) const;
    // Reads that text. False after a message; the token that was not expected is gone, and the identity is
    // what it was.
    bool ParseUserIdentity(CSecuritySettingsParseContext& context);

    // The kind as one byte, then the name as a string of at most CBinaryInput::MaxStringLength code points.
    // What cannot be loaded leaves the guest, or the kind with a part of the name.
    void LoadUserIdentity(CBinaryInput& in);
    void SaveUserIdentity(CBinaryOutput& out) const;

private:
    bool Set(UserIdentityType type, const qvstring& name);

    UserIdentityType m_Type = UserIdentityGuest;
    qvstring m_Name;
};
