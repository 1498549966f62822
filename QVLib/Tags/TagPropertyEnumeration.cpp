#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVLib/Tags/TagPropertyEnumeration.h>
#include <QVPlatform/TextOutput.h>

namespace {

bool HasEnumFlag(unsigned short version) {
    return version > 62;
}

} // namespace

void CTagPropertyEnumeration::AddEnumValue(bool marked, TagIcon icon, const qvstring& firstText,
                                           const qvstring& secondText) {
    m_Values.push_back({marked, icon, firstText, secondText});
}

void CTagPropertyEnumeration::AddEnumValue(bool marked, const qvstring& firstText,
                                           const qvstring& secondText) {
    AddEnumValue(marked, NoIcon, firstText, secondText);
}

void CTagPropertyEnumeration::SortValues(bool (*less)(const EnumValue& a, const EnumValue& b)) {
    m_Values.sort(less);
}

void CTagPropertyEnumeration::ReverseEnumValues() {
    m_Values.reverse();
}

void CTagPropertyEnumeration::SaveEnumeration(unsigned short version, CBinaryOutput& out) const {
    if (HasEnumFlag(version))
        out << m_bEnumFlag;
    out << static_cast<unsigned int>(m_Values.size());
    for (const EnumValue& value : m_Values)
        out << value.m_bMarked << value.m_Icon << value.m_SecondText << value.m_FirstText;
}

void CTagPropertyEnumeration::LoadEnumeration(unsigned short version, CBinaryInput& in) {
    *this = CTagPropertyEnumeration();
    CTagPropertyEnumeration loaded;
    if (HasEnumFlag(version))
        in >> loaded.m_bEnumFlag;
    unsigned int count;
    in >> count;
    // The count is only believed one value at a time.
    for (unsigned int i = 0; i < count; i++) {
        EnumValue& value = loaded.m_Values.emplace_back();
        in >> value.m_bMarked >> value.m_Icon >> value.m_SecondText >> value.m_FirstText;
    }
    *this = std::move(loaded);
}

void CTagPropertyEnumeration::PrintEnumeration(CTextOutput& out) const {
    for (const EnumValue& value : m_Values) {
        out.PrintChar(value.m_bMarked ? '+' : ' ');
        if (value.m_Icon == NoIcon)
            out.Print(" NoIcon");
        else
            out.Print(" Icon=%02d", static_cast<int>(value.m_Icon));
        out.PrintLine(" %s (%s)", value.m_FirstText.c_str(), value.m_SecondText.c_str());
    }
}
