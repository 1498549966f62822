#include <QVLib/Utilities/UniformResourceLocator.h>
#include <string_view>
#include <utility>

int UniformResourceLocator::ParseURL(const qvstring& url) {
    // The parts are stored at last, since `url` may be one of the old ones.
    UniformResourceLocator parsed;
    const int result = parsed.Split(url);
    *this = std::move(parsed);
    return result;
}

int UniformResourceLocator::Split(const qvstring& url) {
    if (url.empty())
        return ParseEmpty;
    const std::size_t colon = url.find(':');
    if (colon == qvstring::npos)
        return ParseNoColon;

    m_Scheme = url.substr(0, colon);
    if (std::string_view(url).substr(colon + 1, 2) != "//") {
        m_Path = url.substr(colon + 1);
        return ParseDone;
    }
    const std::size_t start = colon + 3;
    const std::size_t slash = url.find('/', start);
    m_Authority = url.substr(start, slash == qvstring::npos ? qvstring::npos : slash - start);
    if (slash != qvstring::npos)
        m_Path = url.substr(slash);
    SplitAuthority();
    return ParseDone;
}

void UniformResourceLocator::SplitAuthority() {
    std::size_t host = 0;
    const std::size_t at = m_Authority.find('@');
    if (at != qvstring::npos) {
        m_UserInformation = m_Authority.substr(0, at);
        host = at + 1;
    }
    const std::size_t colon = m_Authority.find(':', host);
    m_Host = m_Authority.substr(host, colon == qvstring::npos ? qvstring::npos : colon - host);
    if (colon != qvstring::npos)
        m_Port = m_Authority.substr(colon + 1);
}
