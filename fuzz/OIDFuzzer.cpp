// Object identifiers from any text and any contents octets. What is read stays within its bytes and prints as a
// text that reads back; arcs, their count and their print agree.
#include <QVLib/Tls/DEREncodedOID.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/TextOutput.h>
#include <cstdint>

namespace {

qvstring Print(const DEREncodedOID& oid) {
    CTextOutputString out;
    oid.Print(out);
    return out.GetString();
}

bool AreSame(const DEREncodedOID& a, const DEREncodedOID& b) {
    return !(a < b) && !(b < a);
}

void CheckArcs(const DEREncodedOID& oid) {
    qvstring text;
    const unsigned int count = oid.GetArcCount();
    QV_ASSERT(count != 1 && count <= DEREncodedOID::MaxOIDLength + 1);
    for (unsigned int i = 0; i < count; ++i)
        text += (i == 0 ? "" : ".") + std::to_string(oid.GetArcValue(i));
    QV_ASSERT(text == Print(oid));
    QV_ASSERT(oid.GetArcValue(count) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const qvstring text(reinterpret_cast<const char*>(data), size);
    DEREncodedOID parsed;
    const bool bGood = parsed.Parse(text.c_str());
    QV_ASSERT(bGood == (parsed.GetArcCount() != 0));
    CheckArcs(parsed);
    if (bGood)
        QV_ASSERT(AreSame(DEREncodedOID(Print(parsed).c_str()), parsed));

    DEREncodedOID oid;
    QV_ASSERT(oid.SetData(data, static_cast<unsigned int>(size)) == (size <= DEREncodedOID::MaxOIDLength));
    CheckArcs(oid);
    CTextOutputString whole; // also of more than an object holds
    DEREncodedOID::Print(data, static_cast<unsigned int>(size), whole);
    QV_ASSERT(size > DEREncodedOID::MaxOIDLength || whole.GetString() == Print(oid));

    const unsigned int before = oid.GetArcCount();
    const bool bAdded = oid.AddArc(static_cast<unsigned int>(size) << 20);
    QV_ASSERT(bAdded || oid.GetArcCount() == before);
    CheckArcs(oid);
    return 0;
}
