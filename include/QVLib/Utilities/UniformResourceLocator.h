// UniformResourceLocator - the parts of a URL, as text.
//
//     UniformResourceLocator url;
//     if (url.ParseURL("opc.tcp://user@host:4840/path?x") == UniformResourceLocator::ParseDone)
//         Connect(url.GetHost(), url.GetPort());
//
// A plain splitter: nothing is decoded or checked; query and fragment stay in the path; a ':' within the brackets of
// an IPv6 address splits it. Code that trusts a host must check the part that it takes.
// Threads: one thread at a time.
#pragma once

#include <QVPlatform/String.h>

class UniformResourceLocator {
public:
    enum ParseResult : int {
        ParseDone = 0,
        ParseEmpty = 1,   // the text is empty
        ParseNoColon = 2, // the text has no ':', so it has no scheme
    };

    // Takes `url` apart, which may be a part of what was parsed before (a URL in the path of another). All parts are empty
    // on any result but ParseDone.
    int ParseURL(const qvstring& url);
    void ClearURL() { *this = UniformResourceLocator(); }

    // Before the first ':'.
    const qvstring& GetScheme() const { return m_Scheme; }
    // Behind "://" up to the next '/'; empty for other URLs. It holds user information, host and port.
    const qvstring& GetAuthority() const { return m_Authority; }
    // From that '/' on, or all that is behind the ':'.
    const qvstring& GetPath() const { return m_Path; }
    // Before the first '@' of the authority.
    const qvstring& GetUserInformation() const { return m_UserInformation; }
    const qvstring& GetHost() const { return m_Host; }
    // Behind the first ':' of what is left of the authority.
    const qvstring& GetPort() const { return m_Port; }

private:
    int Split(const qvstring& url);
    void SplitAuthority();

    qvstring m_Scheme;
    qvstring m_Authority;
    qvstring m_Path;
    qvstring m_UserInformation;
    qvstring m_Host;
    qvstring m_Port;
};
