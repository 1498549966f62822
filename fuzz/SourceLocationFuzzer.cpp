// Compilers' lines and the locations in them: what was understood formats to a form that formats to itself.
#include <QVLib/Presentation/CodeAnnotations.h>
#include <QVLib/Presentation/SourceLocation.h>
#include <QVPlatform/Assert.h>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const qvstring line(reinterpret_cast<const char*>(data), size);
    CSourceLocation location;
    unsigned int colon = 0;
    const bool bLocated = location.ParseLocation(line, colon);
    if (bLocated) {
        qvstring once;
        location.FormatLocation(once);
        // A name of less than three bytes may be followed by its ':' at once, which a longer form would turn into an end;
        // and what looks like a position may come to stand at the end when the items of a query are put in order.
        const bool bPlain =
            once.find(':') == qvstring::npos && location.GetModuleNameWithQuery().find('(') == qvstring::npos;
        CSourceLocation again;
        if (bPlain && again.ParseLocation(once, colon)) {
            qvstring twice;
            again.FormatLocation(twice);
            QV_ASSERT(once == twice);
        }
        location.AdjustPosition(static_cast<int>(size) - 7, 3 - static_cast<int>(size));
    }
    CCodeAnnotations annotations;
    const bool bFiled =
        annotations.AppendMessage(COutputLog::Error, 0, line.data(), static_cast<unsigned int>(size));
    QV_ASSERT(!bFiled || bLocated);
    QV_ASSERT(bFiled == !annotations.GetAnnotations().empty());
    return 0;
}
