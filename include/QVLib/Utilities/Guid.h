// QVGuid - a globally unique identifier of 16 bytes (RFC 4122).
//
//     QVGuid id;
//     if (id.SetRandom())
//         id.PrintGuid(out); // 0f1e2d3c-4b5a-4978-8796-a5b4c3d2e1f0
//
// In memory and in streams: the three leading numbers are little-endian, the eight bytes behind them stand as they
// are printed. So the bytes of a saved GUID are not in the order of its text.
// Variant: generated GUIDs keep two random bits of the byte behind the version, no more: the first digit of the
//          fourth group is always 8, the second one 0, 4, 8 or c. Parsed and loaded GUIDs may hold anything.
// Threads: a value; one thread at a time.
#pragma once

class CBinaryInput;
class CBinaryOutput;
class CTextInput;
class CTextOutput;

class QVGuid {
public:
    // What ParseGuid() could not read.
    enum ParseResult : int {
        ParseDone = 0,
        ParseNoFirstNumber = 1, // 8 hexadecimal digits
        ParseNoFirstHyphen = 2,
        ParseNoSecondNumber = 3, // 4 digits
        ParseNoSecondHyphen = 4,
        ParseNoThirdNumber = 5, // 4 digits
        ParseNoThirdHyphen = 6,
        ParseNoFourthHyphen = 7, // behind the first two of the eight bytes
        ParseNoByte = 8,         // 2 digits for each of the eight bytes
    };

    // The null GUID, all zero.
    QVGuid() = default;

    bool IsNull() const;
    bool operator==(const QVGuid& other) const { return CompareGuid(other) == 0; }
    // Negative, 0 or positive, by the 16 bytes as they lie in memory: an order for containers, not for people.
    int CompareGuid(const QVGuid& other) const;

    // A random GUID, version 4, from the system's cryptographic generator. False when that cannot deliver; the
    // GUID is then null.
    bool SetRandom();
    // A GUID made from a name, version 5: `hash` is the SHA-1 of the name space and the name; its first 16 bytes
    // are used.
    void SetFromHashSHA1(const unsigned char* hash);

    // Reads the canonical text in either case, and nothing behind it. On any result but ParseDone the GUID holds
    // the fields that were read, and is to be thrown away; the code point that did not fit has been read.
    int ParseGuid(CTextInput* input);
    // Writes the canonical text in lower case.
    void PrintGuid(CTextOutput& out) const;

    // The 16 bytes as they lie in memory, without a length. Loading throws CBinaryInput::EOFException when there
    // are fewer, and leaves the GUID as it was.
    void LoadGuid(CBinaryInput& in);
    void SaveGuid(CBinaryOutput& out) const;

private:
    void SetVersionAndVariant(unsigned short version);

    unsigned int m_Data1 = 0;
    unsigned short m_Data2 = 0;
    unsigned short m_Data3 = 0;
    unsigned char m_Data4[8] = {};
};

static_assert(sizeof(QVGuid) == 16);
