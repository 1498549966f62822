#include <QVLib/Tags/TagName.h>
#include <QVPlatform/Ascii.h>
#include <algorithm>
#include <string_view>

namespace {

// The position of the last dot before which both names are level by level the same; npos when there is none.
std::size_t FindEndOfCommonLevels(const qvstring& name, const qvstring& base) {
    std::size_t common = qvstring::npos;
    for (std::size_t start = 0;; start = common + 1) {
        const std::size_t dot = name.find('.', start);
        if (dot == qvstring::npos || base.find('.', start) != dot ||
            name.compare(start, dot - start, base, start, dot - start) != 0)
            return common;
        common = dot;
    }
}

} // namespace

CTagName& CTagName::ToRelative(const qvstring& base) {
    if (m_TagName.empty() || IsRelative() || base.empty())
        return *this;
    const std::size_t common = FindEndOfCommonLevels(m_TagName, base);
    const std::size_t start = common == qvstring::npos ? 0 : common + 1;
    const auto dots = std::count(base.begin() + static_cast<std::ptrdiff_t>(start), base.end(), '.') + 1;
    m_TagName.replace(0, start, static_cast<std::size_t>(dots), '.');
    return *this;
}

CTagName& CTagName::ToAbsolute(const qvstring& base) {
    if (!IsRelative() || base.empty())
        return *this;
    std::size_t kept = base.size();
    std::size_t dots = 0;
    for (; dots < m_TagName.size() && m_TagName[dots] == '.'; dots++) {
        const std::size_t dot = kept == 0 ? qvstring::npos : base.rfind('.', kept - 1);
        kept = dot == qvstring::npos ? 0 : dot;
    }
    qvstring name = base.substr(0, kept);
    if (dots < m_TagName.size() && !name.empty())
        name += '.';
    name.append(m_TagName, dots);
    m_TagName = std::move(name);
    return *this;
}

bool CTagName::MatchOtherTagRef(const qvstring& other, bool allowChild) const {
    const std::size_t length = m_TagName.size();
    if (other.size() < length ||
        qv_compare_ignoring_ascii_case(m_TagName, std::string_view(other).substr(0, length)) != 0)
        return false;
    return other.size() == length || other[length] == '?' || (allowChild && other[length] == '.');
}

bool CTagName::RefactorAbsoluteTagName(const CTagName& oldName, const qvstring& newName) {
    if (!oldName.IsOtherTagSameOrChildOfThisTag(m_TagName))
        return false;
    m_TagName.replace(0, oldName.m_TagName.size(), newName);
    return true;
}

bool CTagName::RefactorTagName(const qvstring& base, const CTagName& oldName, const qvstring& newBase,
                               const qvstring& newName) {
    if (!IsRelative())
        return RefactorAbsoluteTagName(oldName, newName);
    CTagName absolute(*this);
    if (!absolute.ToAbsolute(base).RefactorAbsoluteTagName(oldName, newName))
        return false;
    *this = std::move(absolute.ToRelative(newBase));
    return true;
}
