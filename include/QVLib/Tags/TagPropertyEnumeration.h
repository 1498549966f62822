// CTagPropertyEnumeration - the named values that a property of a tag may take.
//
// Stores, orders, prints and transfers the values; what the flag, the marks and the two texts mean is the product's
// affair.
// Format:  flag (1 byte, only in versions above 62), number of values (unsigned int), then for each value its mark
//          (1 byte), icon (unsigned int), second text and first text (strings), in the encoding of BinaryOutput.h.
//          Nothing in the data tells the version; reader and writer must agree on it.
// Threads: one thread at a time.
#pragma once

#include <QVPlatform/String.h>
#include <list>

class CBinaryInput;
class CBinaryOutput;
class CTextOutput;

// The number of an icon.
using TagIcon = unsigned int;

class CTagPropertyEnumeration {
public:
    struct EnumValue {
        bool m_bMarked = false;
        TagIcon m_Icon = NoIcon;
        qvstring m_FirstText;
        qvstring m_SecondText;
    };

    static constexpr TagIcon NoIcon = 255;

    void AddEnumValue(bool marked, TagIcon icon, const qvstring& firstText, const qvstring& secondText);
    void AddEnumValue(bool marked, const qvstring& firstText, const qvstring& secondText);
    // `less` must be a strict weak order; values that it does not tell apart keep their order.
    void SortValues(bool (*less)(const EnumValue& a, const EnumValue& b));
    void ReverseEnumValues();

    bool GetEnumFlag() const { return m_bEnumFlag; }
    void SetEnumFlag(bool flag) { m_bEnumFlag = flag; }
    const std::list<EnumValue>& GetValues() const { return m_Values; }

    void SaveEnumeration(unsigned short version, CBinaryOutput& out) const;
    // Replaces flag (false in versions without it) and values. Data that end early or hold a text of more than
    // CBinaryInput::MaxStringLength characters throw as CBinaryInput says; there are no values then.
    void LoadEnumeration(unsigned short version, CBinaryInput& in);

    // One line a value: "+ Icon=07 first (second)", with a blank for "+" unless marked, and "NoIcon" for 255.
    void PrintEnumeration(CTextOutput& out) const;

private:
    bool m_bEnumFlag = false;
    std::list<EnumValue> m_Values;
};
