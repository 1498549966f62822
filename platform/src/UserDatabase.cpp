#include <QVPlatform/UserDatabase.h>

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace {

constexpr unsigned int FirstSize = 32;
constexpr unsigned int MaxSize = 1u << 30; // no entry is that long; the name service asks for ever more

} // namespace

bool QVUserDatabase::FindNameOfCurrentUser(qvstring& name) {
    passwd entry;
    if (!Find<passwd>([&](passwd** found) {
            return ::getpwuid_r(::geteuid(), &entry, m_pBuffer.get(), m_Size, found);
        }))
        return false;
    name = entry.pw_name;
    return true;
}

bool QVUserDatabase::FindUserId(const char* name, int& userId) {
    passwd entry;
    if (!Find<passwd>(
            [&](passwd** found) { return ::getpwnam_r(name, &entry, m_pBuffer.get(), m_Size, found); }))
        return false;
    userId = static_cast<int>(entry.pw_uid);
    return true;
}

bool QVUserDatabase::FindGroupsOfUser(const char* name, unsigned int groupId,
                                      std::vector<unsigned int>& groups) {
    int room = 1;
    int count = room;
    groups.resize(1);
    // Room for one tells how many there are. Somebody may join a group meanwhile, so the answer is asked again.
    while (::getgrouplist(name, groupId, groups.data(), &count) < 0) {
        if (count <= room) { // failed for another reason than want of room
            groups.clear();  // whoever overlooks the answer must not find root's group
            return false;
        }
        room = count;
        groups.resize(static_cast<size_t>(room));
    }
    groups.resize(static_cast<size_t>(count));
    return true;
}

bool QVUserDatabase::FindGroupName(unsigned int groupId, qvstring& name) {
    group entry;
    if (!Find<group>(
            [&](group** found) { return ::getgrgid_r(groupId, &entry, m_pBuffer.get(), m_Size, found); }))
        return false;
    name = entry.gr_name;
    return true;
}

void QVUserDatabase::Grow() {
    const unsigned int size = m_Size == 0 ? FirstSize : 2 * m_Size;
    m_pBuffer.reset(new char[size]);
    m_Size = size;
}

template<class Entry, class LookUp>
bool QVUserDatabase::Find(LookUp lookUp) {
    if (m_Size == 0)
        Grow();
    for (;;) {
        Entry* found = nullptr;
        // The answer is the error; what stands in for the name service may answer -1, with the error in errno.
        const int answer = lookUp(&found);
        const int error = answer == -1 ? errno : answer;
        if (error == 0)
            return found != nullptr;
        if (error == ERANGE && m_Size < MaxSize)
            Grow();
        else if (error != EINTR)
            return false;
    }
}
