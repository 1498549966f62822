// CSecuritySettings - the user rights of a system: who may do what, in one folder, in one text file.
//
//     CSecuritySettings settings;
//     settings.InitialiseSecuritySettings(folder, true, false, log); // once, at the program's start
//     CSecuritySettingsAccessRights rights;
//     settings.GetAccessRightsForUser(&token, rights);               // for everybody who logs on
//     settings.LoadTextFile(textPath, changed, log);                 // from time to time: was it edited?
//
// Model:    an ordered list of entries, each an identity and its rights. Somebody's rights are those of all
//           entries that match, added up; the order does not matter for that, and equal identities may stand
//           there more than once.
// Files:    "user-rights.conf", the text that people edit, and "Rights.qvusr", the binary form, read only
//           where there is no text. docs/user-rights.md describes both, byte by byte and for the editor.
// Saving:   the new file is written beside the old one and then takes its place in one step that survives a
//           power cut, so there is always a whole file. It keeps the old one's mode; a new one is 0640.
// Limits of the text: a name that is not one identifier, such as "john.doe", and rights beyond the named ones
//           are saved, but are not understood when the text is read again: then an error is logged, and that
//           entry grants nothing. A name with ':', ';' or a line end in it may even read as other entries, so
//           check names before they are added. SaveTextFile() warns of each such entry; IsTextReadable() tells.
// Errors:   by result and log. Loading the binary form throws CBinaryInput::EOFException where it ends too
//           early and std::length_error for a name of more than 1,048,576 characters; the settings are then as
//           they were. (LoadBinary() itself leaves what it had read.)
// Cost:     loading and asking grow with the number of entries. AddNewUser() and everything else that seeks an
//           entry looks through the list.
// Ownership: the settings own their entries; a pointer to one is good until it is removed, or until a load
//           takes over other entries. Logs and paths are borrowed.
// Threads:  one thread at a time.
#pragma once

#include <QVLib/Security/AccessRights.h>
#include <QVLib/Security/UserIdentity.h>
#include <list>
#include <memory>

class COutputLog;
class CQVFilePath;
class CQVUserAccessToken;

// One entry: whom it is for, and the rights.
class CSecuritySettingsUser : public CSecuritySettingsAccessRights {
public:
    // The guest without a name, without rights.
    CSecuritySettingsUser() = default;
    CSecuritySettingsUser(const CQVUserIdentity& id, unsigned int worldRights)
        : CSecuritySettingsAccessRights(worldRights), m_UserID(id) {}

    const CQVUserIdentity& GetUserID() const { return m_UserID; }
    bool IsGuestAccount() const { return m_UserID.IsGuestIdentity(); }
    bool operator==(const CSecuritySettingsUser& other) const = default;

    // "bob: World=Full" as one line of the log.
    void Print(COutputLog* log) const;

    // "bob: World=Full;" and a line end.
    void SaveAsText(CTextOutput& out) const;
    // Reads that. False after one message; then everything up to and with the next ';' is gone, or up to the
    // one after it where the message is about a ';', because that one was already read.
    bool Parse(CSecuritySettingsParseContext& context);
    // True when parsing what is saved gives this entry again (a guest may gain its name by that).
    bool IsTextReadable() const;

    // One record of the binary form. Zones beyond the fourth are read and forgotten; those that the record
    // does not have get no rights.
    void LoadBinary(CBinaryInput& in);
    void SaveBinary(CBinaryOutput& out) const;

private:
    CQVUserIdentity m_UserID;
};

class CSecuritySettings {
public:
    // The name of the text file in its folder.
    static const char* const FileName;

    // Without entries.
    CSecuritySettings() = default;
    CSecuritySettings(const CSecuritySettings&) = delete;
    CSecuritySettings& operator=(const CSecuritySettings&) = delete;
    ~CSecuritySettings() { Clear(); }

    // Start-up, once, on settings without entries.
    //
    // Takes the text file of `folder`. Where there is none, the binary file, and without that the entries of
    // InitialiseForServer() or InitialiseForCurrentUser(); and writes these as the text file, which is what
    // the next start reads. A text file that opens is what counts, whatever is in it, and is never written:
    // entries with errors are logged and grant nothing. One that is there but cannot be opened is not
    // overwritten either: the system's reason is logged, and the binary file or the defaults are used for
    // this time.
    void InitialiseSecuritySettings(const CQVFilePath& folder, bool forServer, bool addGuest,
                                    COutputLog* log);
    // The defaults: full rights for root, for every authenticated user and, with `addGuest`, for the guest.
    void InitialiseForServer(bool addGuest);
    // Full rights for the current user and for root; every authenticated user may look (or may do everything,
    // where the system does not know the current user).
    void InitialiseForCurrentUser();

    // Questions.

    // All rights of the entries that match the user.
    void GetAccessRightsForUser(CQVUserAccessToken* token, CSecuritySettingsAccessRights& rights) const;
    bool IsGuestAccountConfigured() const;
    // Always false, because no token is to be had for the process (CQVUserAccessToken::SetFromCurrentProcess).
    bool CanCurrentUserConfigureSecurity();
    // The same entries in the same order.
    bool operator==(const CSecuritySettings& other) const;
    // One line an entry.
    void Print(COutputLog* log) const;

    // Changes, in memory only. Each acts on the first entry of an equal identity.

    // Appends an entry, from a name as CQVUserIdentity::SetFromUserName() understands it, or for an identity.
    // Null, and nothing changed, when there is an entry of an equal identity.
    CSecuritySettingsUser* AddNewUser(const qvstring& name, unsigned int worldRights);
    CSecuritySettingsUser* AddNewUser(const CQVUserIdentity& id, unsigned int worldRights);
    // These three are false when there is no such entry, the last one also for a zone above 3.
    bool RemoveUser(const CQVUserIdentity& id);
    bool UpdateUserWorldRights(const CQVUserIdentity& id, unsigned int rights);
    bool UpdateUserZoneRights(const CQVUserIdentity& id, unsigned int zoneIndex, unsigned int rights);
    // Append an entry, whether there is an equal one or not. False when the system does not know the current
    // user.
    bool AddRightsForCurrentUser(unsigned int worldRights);
    void AddAuthenticatedUser(unsigned int worldRights);
    void Clear();

    // Files.

    // Replaces the entries by those of the file, if it differs and is free of errors. `changed` tells whether
    // it did. False, with the entries as they were, when the file cannot be read or has an error.
    bool LoadTextFile(const CQVFilePath& path, bool& changed, COutputLog* log);
    // Appends the entries of the file; those that were understood are there also when others were not, which
    // gives false.
    bool ParseTextFile(const CQVFilePath& path, COutputLog* log);
    // UTF-8 without a mark, LF line ends. False when the file is not complete and in place.
    bool SaveTextFile(const CQVFilePath& path, COutputLog* log) const;
    // As LoadTextFile(); false for a file that cannot be opened or has another version.
    bool LoadBinaryFile(const CQVFilePath& path, bool& changed, COutputLog* log);
    bool SaveBinaryFile(const CQVFilePath& path, COutputLog* log) const;

    // The same without the files. Loading and parsing append.

    void ParseText(CSecuritySettingsParseContext& context);
    void SaveAsText(CTextOutput& out) const;
    // False for another version, of which no more is read.
    bool LoadBinary(CBinaryInput& in);
    void SaveBinary(CBinaryOutput& out) const;

    std::list<CSecuritySettingsUser*> m_Users; // owned

private:
    std::list<CSecuritySettingsUser*>::const_iterator Find(const CQVUserIdentity& id) const;
    CSecuritySettingsUser* Append(std::unique_ptr<CSecuritySettingsUser> user);
    bool TakeOver(CSecuritySettings& loaded, COutputLog* log);
};
