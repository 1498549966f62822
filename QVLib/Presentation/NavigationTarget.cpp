#include <QVLib/Presentation/NavigationTarget.h>
#include <QVLib/Presentation/SourceLocation.h>

void CNavigationTarget::NavigateToLink(const qvstring& link) {
    CSourceLocation location;
    unsigned int colon;
    if (location.ParseLocation(link, colon))
        NavigateToLocation(location);
}

void CNavigationTarget::NavigateToTag(const CTagName& tag) {
    NavigateToLocation(CSourceLocation(tag));
}
