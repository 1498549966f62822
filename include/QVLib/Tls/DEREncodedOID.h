// DEREncodedOID - an object identifier such as 1.2.840.113549, kept as the contents octets of its DER form
// (X.690, 8.19; without tag and length).
//
//     const DEREncodedOID oid("1.2.840.113549");
//     std::map<DEREncodedOID, Handler, DEREncodedOID::Compare> handlers;
//
// The first two arcs share one sub-identifier, 40 times the first plus the second. Nothing checks that the first
// is at most 2 and the second below 40 where it has to be: 1.45 is stored as, and prints as, 2.5.
//
// Limits:    128 bytes, and 32 bits for a sub-identifier. What would pass either is refused. Only SetData() takes
//            bytes as they come: a larger sub-identifier in them reads as 4294967295, and one that the end cuts
//            off as what there is of it.
// Threads:   a value; copies are independent.
#pragma once

class CTextOutput;

class DEREncodedOID {
public:
    static constexpr unsigned int MaxOIDLength = 128;

    DEREncodedOID() = default;
    // Parse(); empty when the text is no identifier.
    explicit DEREncodedOID(const char* text);

    // Reads decimal numbers with dots between them, at least two. A number that is left out is 0, and blanks or a
    // '+' before one are passed over. False, and the value is empty, for any other text.
    bool Parse(const char* text);
    // Replaces the value by `length` bytes of contents octets. False, and nothing changed, for more than 128.
    bool SetData(const unsigned char* data, unsigned int length);

    // Append the first two arcs, or one further arc. False, and nothing changed, past the limits.
    bool AddFirstArc(unsigned int first, unsigned int second);
    bool AddArc(unsigned int value);

    // 0 for an empty identifier, at least 2 for any other.
    unsigned int GetArcCount() const;
    // 0 past the end.
    unsigned int GetArcValue(unsigned int index) const;

    // Writes the arcs with dots between them; nothing when empty.
    void Print(CTextOutput& out) const;
    // The same for contents octets of any length.
    static void Print(const unsigned char* data, unsigned int length, CTextOutput& out);

    // The shorter encoding comes first; of equal length, the smaller bytes do. No order by arcs.
    bool operator<(const DEREncodedOID& other) const;

    // For ordered containers.
    struct Compare {
        bool operator()(const DEREncodedOID& a, const DEREncodedOID& b) const { return a < b; }
    };

private:
    unsigned int m_Length = 0;
    unsigned char m_Data[MaxOIDLength] = {};
};
