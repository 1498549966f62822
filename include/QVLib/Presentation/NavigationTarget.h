// CNavigationTarget - whoever can show the user a place: a source, or a tag.
//
// The client derives from it; the library's logic asks it.
// Threads: as the client says.
#pragma once

#include <QVPlatform/String.h>

class CSourceLocation;
class CTagName;

class CNavigationTarget {
public:
    virtual ~CNavigationTarget() = default;

    // Shows the place.
    virtual void NavigateToLocation(const CSourceLocation& location) = 0;

    // Shows the place that a link names as CSourceLocation::ParseLocation() reads it; nothing for any other text.
    void NavigateToLink(const qvstring& link);
    void NavigateToTag(const CTagName& tag);
};
