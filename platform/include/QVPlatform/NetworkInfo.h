// QVNetworkInfo - the names and addresses of a host: of this machine, or of the one that a certificate is for.
//
// Host names belong together as a set, in which neither order, repetition nor case counts.
// Threads:  one thread at a time per object.
#pragma once

#include <QVPlatform/String.h>
#include <list>

class QVNetworkInfo {
public:
    // Nothing known.
    QVNetworkInfo() = default;

    // This machine: the name that it was given is the canonical one and a host name; so is its part before the
    // first dot. Addresses are those of the network interfaces that are up, loopback left out. No name server is
    // asked: names that come and go with the network would make certificates come and go. Add the aliases that
    // clients use with AddHostName(). What the system does not tell stays empty.
    static QVNetworkInfo OfThisMachine();

    const qvstring& GetCanonicalHostName() const { return m_CanonicalHostName; }
    void SetCanonicalHostName(const qvstring& name) { m_CanonicalHostName = name; }

    const std::list<qvstring>& GetHostNames() const { return m_HostNames; }
    void AddHostName(const qvstring& name) { m_HostNames.push_back(name); }
    // True when the name is among the host names.
    bool HasHostName(const qvstring& name) const;

    // As text: "192.0.2.7", "2001:db8::7".
    const std::list<qvstring>& GetAddresses() const { return m_Addresses; }

    // True when canonical name and set of host names are the same. Addresses do not count: a machine gets another
    // one without becoming another machine, and a certificate holds none.
    bool IsSameNetworkInfoAs(const QVNetworkInfo& other) const;
    // How names are compared: case does not count in ASCII.
    static bool IsSameName(const qvstring& a, const qvstring& b);

private:
    qvstring m_CanonicalHostName;
    std::list<qvstring> m_HostNames;
    std::list<qvstring> m_Addresses;
};
