// CTagName - the name of a tag, absolute or as another tag refers to it.
//
//     CTagName(".Running").ToAbsolute("Plant.Pump1.Speed").TagName(); // Plant.Pump1.Running
//
// Names:    '.' separates the levels of the tag tree, '?' introduces a property of a tag: Plant.Pump1?Alarm.
// Relative: a name that begins with '.'. Each leading dot climbs one level from the name of the referring tag: one dot
//           names a sibling of that tag, two a sibling of its parent, and so on.
// Case:     matching ignores the case of ASCII letters; making a name relative does not.
// Threads:  a value; one thread at a time.
#pragma once

#include <QVPlatform/String.h>
#include <utility>

class CTagName {
public:
    CTagName() = default;
    explicit CTagName(const qvstring& name) : m_TagName(name) {}
    explicit CTagName(qvstring&& name) : m_TagName(std::move(name)) {}
    CTagName(const char* text, unsigned int length) : m_TagName(text, length) {}

    const qvstring& TagName() const { return m_TagName; }
    bool IsRelative() const { return m_TagName.starts_with('.'); }

    // Rewrites an absolute name as the tag `base` would refer to it; ToAbsolute() with the same base gives the name
    // back, as long as none of its levels is empty. A relative or empty name, and any name with an empty base, stays
    // as it is. Seen from A.B.C: A.B.D is .D, A.X.Y is ..X.Y, Z.Y is ...Z.Y.
    CTagName& ToRelative(const qvstring& base);
    // Rewrites a relative name with the levels of `base`; with more dots than levels, what is behind the dots stands
    // alone. An absolute name, and any name with an empty base, stays as it is.
    CTagName& ToAbsolute(const qvstring& base);

    // Does `other` name this tag or one of its properties, or, where asked for, one of its children?
    bool MatchOtherTagRef(const qvstring& other, bool allowChild) const;
    bool IsOtherTagSameOrChildOfThisTag(const qvstring& other) const { return MatchOtherTagRef(other, true); }
    bool IsOtherTagSameAsThisTag(const qvstring& other) const { return MatchOtherTagRef(other, false); }

    // When the tag `oldName` gets the name `newName`: rewrites this name if it is that tag's, or below it. True when it
    // was.
    bool RefactorAbsoluteTagName(const CTagName& oldName, const qvstring& newName);
    // The same for a reference that may be relative, held by the tag `base`, which itself ends up as `newBase`.
    bool RefactorTagName(const qvstring& base, const CTagName& oldName, const qvstring& newBase,
                         const qvstring& newName);

private:
    qvstring m_TagName;
};
