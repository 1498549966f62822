// QVUserDatabase - the system's users and groups, as its name service knows them (files, directories, ...).
//
//     QVUserDatabase database;
//     std::vector<unsigned int> groups;
//     database.FindGroupsOfUser("alice", groupId, groups);
//     for (unsigned int group : groups)
//         if (database.FindGroupName(group, name))
//             ...
//
// Names:    taken and given byte by byte; a name is everything up to its terminating zero.
// Errors:   false: there is no such entry, or the name service failed. The two are not told apart, because no
//           caller would do anything else about it.
// Cost:     every call may ask a server in the network, and waits for it.
// Threads:  one thread at a time for an object; different objects may be used at once.
#pragma once

#include <QVPlatform/String.h>
#include <memory>
#include <vector>

class QVUserDatabase {
public:
    // The name of the user whose rights this process has (its effective user).
    bool FindNameOfCurrentUser(qvstring& name);
    bool FindUserId(const char* name, int& userId);
    // The numbers of all groups that have the user as a member, `groupId` always among them, in the name
    // service's order. False leaves `groups` empty.
    bool FindGroupsOfUser(const char* name, unsigned int groupId, std::vector<unsigned int>& groups);
    bool FindGroupName(unsigned int groupId, qvstring& name);

private:
    // Repeats a look-up with more and more room until its entry fits; true when it found one.
    template<class Entry, class LookUp>
    bool Find(LookUp lookUp);
    void Grow();

    // The texts of the entry that was found last. Kept, so that many look-ups seek the right size once.
    std::unique_ptr<char[]> m_pBuffer;
    unsigned int m_Size = 0;
};
