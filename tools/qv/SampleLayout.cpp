#include "SampleLayout.h"

#include "Tool.h"

#include <QVLib/HistoricTables/HistoricTable.h>
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

namespace {

struct TypeName {
    const char* m_pName;
    unsigned int m_Size;
};
// In the order of SampleField::Type.
constexpr TypeName TypeNames[] = {{"i8", 1},  {"i16", 2}, {"i32", 4}, {"i64", 8}, {"u8", 1},
                                  {"u16", 2}, {"u32", 4}, {"u64", 8}, {"f32", 4}, {"f64", 8}};

constexpr const char* ColumnOrder[] = {"time", "tag", "value", "quality"};

[[noreturn]] void Refuse(const std::string& reason) {
    throw ToolError(ExitUsage, "--layout: " + reason + "; a layout looks like " + SampleLayout::Standard);
}

bool ParseWhole(std::string_view text, auto& number) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool IsFieldName(std::string_view name) {
    return std::all_of(name.begin(), name.end(), [](unsigned char character) {
        return character == '_' || (character >= '0' && character <= '9') ||
               ((character | 0x20) >= 'a' && (character | 0x20) <= 'z');
    });
}

SampleField ParseField(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos)
        Refuse(Quoted(text) + " has no ':' between name and type");
    SampleField field;
    field.m_Name = text.substr(0, colon);
    const std::string_view type = text.substr(colon + 1);
    if (!IsFieldName(field.m_Name))
        Refuse("the name " + Quoted(field.m_Name) + " may only hold letters, digits and '_'");

    for (std::size_t index = 0; index < std::size(TypeNames); ++index) {
        if (type == TypeNames[index].m_pName) {
            field.m_Type = static_cast<SampleField::Type>(index);
            field.m_Size = TypeNames[index].m_Size;
            return field;
        }
    }
    if (!type.starts_with('b') || !ParseWhole(type.substr(1), field.m_Size) || field.m_Size == 0 ||
        field.m_Size > CHistoricTable::MaxRecordSize)
        Refuse(Quoted(type) + " is no type (i8 to i64, u8 to u64, f32, f64, b1 to b131072)");
    if (!field.m_Name.empty())
        Refuse("the bytes " + Quoted(text) + " can only be passed over, so they have no name");
    return field;
}

std::size_t ColumnRank(const SampleField& field) {
    return static_cast<std::size_t>(std::find(std::begin(ColumnOrder), std::end(ColumnOrder), field.m_Name) -
                                    std::begin(ColumnOrder));
}

} // namespace

unsigned long long SampleField::Load(const unsigned char* record) const {
    unsigned long long bits = 0;
    for (unsigned int index = 0; index < m_Size; ++index)
        bits |= static_cast<unsigned long long>(record[m_Offset + index]) << (8 * index);
    return bits;
}

void SampleField::Store(unsigned long long bits, unsigned char* record) const {
    for (unsigned int index = 0; index < m_Size; ++index)
        record[m_Offset + index] = static_cast<unsigned char>(bits >> (8 * index));
}

long long SampleField::GetInteger(const unsigned char* record) const {
    // Shifting up and back extends the sign.
    const unsigned int unused = 64 - 8 * m_Size;
    return static_cast<long long>(Load(record) << unused) >> unused;
}

double SampleField::GetReal(const unsigned char* record) const {
    if (m_Type == F64)
        return std::bit_cast<double>(Load(record));
    if (m_Type == F32)
        return std::bit_cast<float>(static_cast<std::uint32_t>(Load(record)));
    return IsSigned() ? static_cast<double>(GetInteger(record)) : static_cast<double>(Load(record));
}

bool SampleField::SetUnsigned(unsigned long long value, unsigned char* record) const {
    if (IsReal())
        return SetReal(static_cast<double>(value), record);
    const unsigned int bits = 8 * m_Size - (IsSigned() ? 1 : 0);
    if (bits < 64 && value >> bits != 0)
        return false;
    Store(value, record);
    return true;
}

bool SampleField::SetReal(double value, unsigned char* record) const {
    if (m_Type == F64) {
        Store(std::bit_cast<unsigned long long>(value), record);
        return true;
    }
    if (m_Type != F32 || (std::isfinite(value) && std::fabs(value) > std::numeric_limits<float>::max()))
        return false;
    Store(std::bit_cast<std::uint32_t>(static_cast<float>(value)), record);
    return true;
}

bool SampleField::SetText(std::string_view text, unsigned char* record) const {
    if (IsReal()) {
        double value = 0;
        return ParseWhole(text, value) && SetReal(value, record);
    }
    if (!IsSigned()) {
        unsigned long long value = 0;
        return ParseWhole(text, value) && SetUnsigned(value, record);
    }
    long long value = 0;
    if (!ParseWhole(text, value))
        return false;
    const unsigned int unused = 64 - 8 * m_Size;
    if (static_cast<long long>(static_cast<unsigned long long>(value) << unused) >> unused != value)
        return false;
    Store(static_cast<unsigned long long>(value), record);
    return true;
}

SampleLayout::SampleLayout(std::string_view text) {
    unsigned int offset = 0;
    for (bool bMore = true; bMore;) {
        const std::size_t comma = text.find(',');
        SampleField field = ParseField(text.substr(0, comma));
        bMore = comma != std::string_view::npos;
        text.remove_prefix(bMore ? comma + 1 : text.size());

        field.m_Offset = offset;
        if (offset == 0 && (field.m_Name != "time" || field.m_Type != SampleField::I64))
            Refuse("the first field must be time:i64");
        if (field.m_Size > CHistoricTable::MaxRecordSize - offset)
            Refuse("the record passes " + std::to_string(CHistoricTable::MaxRecordSize) + " bytes");
        offset += field.m_Size;
        if (field.m_Name.empty())
            continue;
        if (Find(field.m_Name) != nullptr)
            Refuse("two fields have the name " + Quoted(field.m_Name));
        if ((field.m_Name == "tag" || field.m_Name == "quality") && (field.IsReal() || field.IsSigned()))
            Refuse("the field " + Quoted(field.m_Name) + " must be u8, u16, u32 or u64");
        m_Fields.push_back(std::move(field));
    }
    m_RecordSize = offset;
    std::stable_sort(m_Fields.begin(), m_Fields.end(), [](const SampleField& a, const SampleField& b) {
        return ColumnRank(a) < ColumnRank(b);
    });
}

const SampleField* SampleLayout::Find(std::string_view name) const {
    const auto found = std::find_if(m_Fields.begin(), m_Fields.end(),
                                    [&](const SampleField& field) { return field.m_Name == name; });
    return found != m_Fields.end() ? &*found : nullptr;
}

const SampleField& SampleLayout::Require(std::string_view name, const char* needer) const {
    const SampleField* const field = Find(name);
    if (field == nullptr)
        Refuse(std::string(needer) + " needs a field with the name " + Quoted(name));
    return *field;
}

long long SampleLayout::GetTime(const unsigned char* record) {
    unsigned long long bits = 0;
    for (unsigned int index = 0; index < 8; ++index)
        bits |= static_cast<unsigned long long>(record[index]) << (8 * index);
    return static_cast<long long>(bits);
}
