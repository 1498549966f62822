#include <QVPlatform/NetworkInfo.h>

#include <QVPlatform/Ascii.h>

#include <algorithm>
#include <climits>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

qvstring NameOfThisMachine() {
    char name[HOST_NAME_MAX + 1] = "";
    if (::gethostname(name, sizeof name) != 0)
        return qvstring();
    name[HOST_NAME_MAX] = '\0'; // a name that was cut need not be terminated
    return name;
}

// Empty for an address of another family.
qvstring TextOf(const sockaddr* address) {
    const socklen_t length = address == nullptr               ? 0
                             : address->sa_family == AF_INET  ? sizeof(sockaddr_in)
                             : address->sa_family == AF_INET6 ? sizeof(sockaddr_in6)
                                                              : 0;
    char text[NI_MAXHOST];
    if (length == 0 || ::getnameinfo(address, length, text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0)
        return qvstring();
    return text;
}

std::list<qvstring> AddressesOfThisMachine() {
    std::list<qvstring> addresses;
    ifaddrs* interfaces = nullptr;
    if (::getifaddrs(&interfaces) != 0)
        return addresses;
    for (const ifaddrs* entry = interfaces; entry != nullptr; entry = entry->ifa_next) {
        const bool bUsed = (entry->ifa_flags & IFF_UP) != 0 && (entry->ifa_flags & IFF_LOOPBACK) == 0;
        qvstring text = bUsed ? TextOf(entry->ifa_addr) : qvstring();
        if (!text.empty())
            addresses.push_back(std::move(text));
    }
    ::freeifaddrs(interfaces);
    addresses.sort();
    addresses.unique();
    return addresses;
}

} // namespace

QVNetworkInfo QVNetworkInfo::OfThisMachine() {
    QVNetworkInfo info;
    const qvstring name = NameOfThisMachine();
    info.SetCanonicalHostName(name);
    if (!name.empty())
        info.AddHostName(name);
    const size_t dot = name.find('.');
    if (dot != qvstring::npos && dot != 0)
        info.AddHostName(name.substr(0, dot));
    info.m_Addresses = AddressesOfThisMachine();
    return info;
}

bool QVNetworkInfo::HasHostName(const qvstring& name) const {
    return std::any_of(m_HostNames.begin(), m_HostNames.end(),
                       [&](const qvstring& own) { return IsSameName(own, name); });
}

bool QVNetworkInfo::IsSameNetworkInfoAs(const QVNetworkInfo& other) const {
    const auto hasAll = [](const QVNetworkInfo& a, const QVNetworkInfo& b) {
        return std::all_of(b.m_HostNames.begin(), b.m_HostNames.end(),
                           [&](const qvstring& name) { return a.HasHostName(name); });
    };
    return IsSameName(m_CanonicalHostName, other.m_CanonicalHostName) && hasAll(*this, other) &&
           hasAll(other, *this);
}

bool QVNetworkInfo::IsSameName(const qvstring& a, const qvstring& b) {
    return qv_compare_ignoring_ascii_case(a, b) == 0;
}
