// SampleLayout - where the fields of a record lie, as the user tells it with --layout.
//
// A layout is a list of name:type, in the order of the bytes and without gaps between them:
//
//     time:i64,tag:u32,quality:u16,:u16,value:f64
//
// Types are i8 i16 i32 i64, u8 u16 u32 u64, f32 f64, all little-endian, and bN for N bytes that are passed
// over. A field without a name is passed over too, and written as zeros. The first field is time:i64. The
// names tag, value and quality mean what they say to the commands; other names are columns of their own.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct SampleField {
    enum Type { I8, I16, I32, I64, U8, U16, U32, U64, F32, F64, Bytes };

    bool IsReal() const { return m_Type == F32 || m_Type == F64; }
    bool IsSigned() const { return m_Type <= I64; }

    // The field's value in a record. The first is for signed integers, the second for unsigned ones.
    long long GetInteger(const unsigned char* record) const;
    unsigned long long GetUnsigned(const unsigned char* record) const { return Load(record); }
    // For fields of every type; an integer past 2^53 is rounded.
    double GetReal(const unsigned char* record) const;

    // Stores a value; false, and nothing stored, when the field cannot hold it.
    bool SetUnsigned(unsigned long long value, unsigned char* record) const;
    bool SetReal(double value, unsigned char* record) const;
    // Stores a number that is written out.
    bool SetText(std::string_view text, unsigned char* record) const;

    std::string m_Name;
    Type m_Type = Bytes;
    unsigned int m_Offset = 0; // from the start of the record
    unsigned int m_Size = 0;   // bytes

private:
    unsigned long long Load(const unsigned char* record) const;
    void Store(unsigned long long bits, unsigned char* record) const;
};

class SampleLayout {
public:
    // The record of `qv history record`: 24 bytes.
    static constexpr const char* Standard = "time:i64,tag:u32,quality:u16,:u16,value:f64";

    // Throws a ToolError for text that is no layout.
    explicit SampleLayout(std::string_view text);
    SampleLayout(const SampleLayout&) = delete;
    SampleLayout& operator=(const SampleLayout&) = delete;

    unsigned int GetRecordSize() const { return m_RecordSize; }
    // The named fields in the order of columns: time, tag, value, quality, then the others as they lie.
    const std::vector<SampleField>& GetFields() const { return m_Fields; }
    // Null when there is no such field.
    const SampleField* Find(std::string_view name) const;
    // The same, but throws a ToolError that says what needs the field.
    const SampleField& Require(std::string_view name, const char* needer) const;

    // The time of a record.
    static long long GetTime(const unsigned char* record);

private:
    std::vector<SampleField> m_Fields;
    unsigned int m_RecordSize = 0;
};
