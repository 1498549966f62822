#include <QVLib/Json/JSONValue.h>

#include "JSONWriter.h"
#include <QVLib/Parsing/ErrorLog.h>
#include <QVLib/Resources/Messages.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numeric>
#include <string_view>

namespace {

// Returns a new value with the caller's reference.
template<class T, class... Arguments>
JSONValue* NewValue(Arguments&&... arguments) {
    JSONValue* const value = new T(std::forward<Arguments>(arguments)...);
    value->AddRef();
    return value;
}

JSONValue* RefuseLeft(const char* operatorText, const ErrorLocation& where, CErrorLog& log) {
    log.LogError(where, g_LibModule, QVMessage::LeftSideNotNumeric, operatorText);
    return nullptr;
}

// Applies `operation` to two numbers, or says that the right side is none.
template<class Operation>
JSONValue* Calculate(double left, JSONValue* right, const char* operatorText, const ErrorLocation& where,
                     CErrorLog& log, Operation operation) {
    double rightValue = 0;
    if (right->GetNumericValue(rightValue))
        return operation(left, rightValue);
    log.LogError(where, g_LibModule, QVMessage::RightSideNotNumeric, operatorText);
    return nullptr;
}

// What stands for a byte in a JSON string: itself (0), a letter behind a backslash, or 'u' for a \u escape.
constexpr std::array<char, 256> MakeEscapes() {
    std::array<char, 256> escapes{};
    for (unsigned int byte = 0; byte < 32; ++byte)
        escapes[byte] = 'u';
    escapes['\\'] = '\\';
    escapes['"'] = '"';
    escapes['\n'] = 'n';
    escapes['\r'] = 'r';
    escapes['\f'] = 'f';
    escapes['\t'] = 't';
    escapes['\b'] = 'b';
    return escapes;
}
constexpr std::array<char, 256> kEscapes = MakeEscapes();

// Writes the elements of a container between its brackets. `element` writes the i-th one.
template<class Element>
void FormatContainer(char open, char close, size_t count, JSONWriter& out, Element element) {
    out.Put(open);
    if (out.IsPretty()) {
        out.EndLine();
        out.AdjustIndent(1);
    }
    for (size_t i = 0; i < count; ++i) {
        if (i != 0) {
            out.Put(',');
            if (out.IsPretty())
                out.EndLine();
        }
        element(i);
    }
    if (out.IsPretty())
        out.AdjustIndent(-1);
    out.Put(close);
}

void PutEscaped(const qvstring& text, JSONWriter& out) {
    out.Put('"');
    const char* const end = text.data() + text.size();
    for (const char* run = text.data(); run != end;) {
        const char* current = run;
        while (current != end && kEscapes[static_cast<unsigned char>(*current)] == 0)
            ++current;
        out.Put(std::string_view(run, static_cast<size_t>(current - run)));
        if (current == end)
            break;
        const unsigned char byte = static_cast<unsigned char>(*current);
        char escape[8] = {'\\', kEscapes[byte]};
        size_t length = 2;
        if (kEscapes[byte] == 'u')
            length = qv_sprintf(escape, sizeof escape, "\\u%04X", byte);
        out.Put(std::string_view(escape, length));
        run = current + 1;
    }
    out.Put('"');
}

// Byte by byte; the first byte usually settles it.
bool IsBefore(const qvstring& a, const qvstring& b) {
    const unsigned char first = static_cast<unsigned char>(a.c_str()[0]);
    const unsigned char second = static_cast<unsigned char>(b.c_str()[0]);
    return first != second ? first < second : a < b;
}

// Sorts by name and keeps the order of equal names. For few members this costs less than the memory that a
// stable sort asks for.
constexpr size_t kFewMembers = 16;
void SortByName(JSONValueObject::Member** members, size_t count) {
    const auto before = [](const auto* a, const auto* b) { return IsBefore(a->first, b->first); };
    if (count > kFewMembers) {
        std::stable_sort(members, members + count, before);
        return;
    }
    for (size_t i = 1; i < count; ++i) {
        auto* const member = members[i];
        size_t place = i;
        for (; place > 0 && before(member, members[place - 1]); --place)
            members[place] = members[place - 1];
        members[place] = member;
    }
}

} // namespace

bool JSONValue::GetNumericValue(double&) const {
    return false;
}

bool JSONValue::GetStringValue(char*, unsigned int) const {
    return false;
}

JSONValue* JSONValue::DoNegate(const ErrorLocation& where, CErrorLog& log) const {
    log.LogError(where, g_LibModule, QVMessage::CannotNegate);
    return nullptr;
}

JSONValue* JSONValue::DoAdd(JSONValue*, const ErrorLocation& where, CErrorLog& log) const {
    return RefuseLeft("+", where, log);
}

JSONValue* JSONValue::DoSub(JSONValue*, const ErrorLocation& where, CErrorLog& log) const {
    return RefuseLeft("-", where, log);
}

JSONValue* JSONValue::DoMul(JSONValue*, const ErrorLocation& where, CErrorLog& log) const {
    return RefuseLeft("*", where, log);
}

JSONValue* JSONValue::DoDiv(JSONValue*, const ErrorLocation& where, CErrorLog& log) const {
    return RefuseLeft("/", where, log);
}

JSONValue* JSONValue::DoMod(JSONValue*, const ErrorLocation& where, CErrorLog& log) const {
    return RefuseLeft("%", where, log);
}

void JSONValue::Evaluate(CTextOutput& out) const {
    Format(false, out);
}

void JSONValue::EscapeString(const qvstring& text, CTextOutput& out) const {
    JSONWriter writer(out, false);
    PutEscaped(text, writer);
}

void JSONValue::FormatWithWriter(bool pretty, CTextOutput& out) const {
    JSONWriter writer(out, pretty);
    FormatTo(writer);
}

void JSONValueNull::FormatTo(JSONWriter& out) const {
    out.Put("null");
}

void JSONValueBoolean::FormatTo(JSONWriter& out) const {
    out.Put(m_bValue ? "true" : "false");
}

bool JSONValueNumeric::GetNumericValue(double& value) const {
    value = m_Value;
    return true;
}

JSONValue* JSONValueNumeric::DoNegate(const ErrorLocation&, CErrorLog&) const {
    return NewValue<JSONValueNumeric>(-m_Value);
}

JSONValue* JSONValueNumeric::DoAdd(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const {
    return Calculate(m_Value, right, "+", where, log,
                     [](double a, double b) { return NewValue<JSONValueNumeric>(a + b); });
}

JSONValue* JSONValueNumeric::DoSub(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const {
    return Calculate(m_Value, right, "-", where, log,
                     [](double a, double b) { return NewValue<JSONValueNumeric>(a - b); });
}

JSONValue* JSONValueNumeric::DoMul(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const {
    return Calculate(m_Value, right, "*", where, log,
                     [](double a, double b) { return NewValue<JSONValueNumeric>(a * b); });
}

JSONValue* JSONValueNumeric::DoDiv(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const {
    return Calculate(m_Value, right, "/", where, log, [](double a, double b) {
        return b == 0.0 ? NewValue<JSONValueNull>() : NewValue<JSONValueNumeric>(a / b);
    });
}

JSONValue* JSONValueNumeric::DoMod(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const {
    return Calculate(m_Value, right, "%", where, log, [](double a, double b) {
        return b == 0.0 ? NewValue<JSONValueNull>() : NewValue<JSONValueNumeric>(std::fmod(a, b));
    });
}

void JSONValueNumeric::FormatTo(JSONWriter& out) const {
    out.Put(m_Value);
}

bool JSONValueString::GetStringValue(char* buffer, unsigned int size) const {
    qv_strcpy(buffer, size, m_Value.c_str());
    return true;
}

void JSONValueString::FormatTo(JSONWriter& out) const {
    PutEscaped(m_Value, out);
}

void JSONValueString::Evaluate(CTextOutput& out) const {
    out.WriteString(m_Value);
}

JSONValueArray::~JSONValueArray() {
    for (JSONValue* const value : m_Values)
        value->Release();
}

bool JSONValueArray::CastToBoolean() const {
    return std::any_of(m_Values.begin(), m_Values.end(),
                       [](const JSONValue* value) { return value->CastToBoolean(); });
}

void JSONValueArray::FormatTo(JSONWriter& out) const {
    FormatContainer('[', ']', m_Values.size(), out, [&](size_t i) { m_Values[i]->FormatTo(out); });
}

JSONValue* JSONValueArray::LookupValue(int index) const {
    const long long count = static_cast<long long>(m_Values.size());
    const long long position = index < 0 ? index + count : index;
    if (position < 0 || position >= count)
        return nullptr;
    JSONValue* const value = m_Values[static_cast<size_t>(position)];
    value->AddRef();
    return value;
}

void JSONValueArray::AddValue(JSONValue* value) {
    m_Values.push_back(value);
    value->AddRef();
}

JSONValueObject::~JSONValueObject() {
    for (const Member& member : m_Members)
        member.second->Release();
}

void JSONValueObject::FormatTo(JSONWriter& out) const {
    FormatContainer('{', '}', m_Members.size(), out, [&](size_t i) {
        out.Put('"');
        out.Put(m_Members[i].first.c_str()); // as "%s" would: up to a zero byte
        out.Put("\":");
        m_Members[i].second->FormatTo(out);
    });
}

void JSONValueObject::AddValue(const qvstring& key, JSONValue* value) {
    value->AddRef(); // first: it may be the value that it replaces
    const auto place =
        std::lower_bound(m_Members.begin(), m_Members.end(), key,
                         [](const Member& member, const qvstring& name) { return member.first < name; });
    if (place != m_Members.end() && place->first == key)
        std::exchange(place->second, value)->Release();
    else
        m_Members.emplace(place, key, value);
}

void JSONValueObject::AddValue(const qvstring& key, const char* value) {
    AddValue(key, new JSONValueString(qvstring(value)));
}

void JSONValueObject::AddValue(const qvstring& key, bool value) {
    AddValue(key, new JSONValueBoolean(value));
}

void JSONValueObject::AddValue(const qvstring& key, int value) {
    AddValue(key, new JSONValueNumeric(value));
}

void JSONValueObject::AddValue(const qvstring& key, const qvstring& value) {
    AddValue(key, new JSONValueString(value));
}

JSONValue* JSONValueObject::FindMember(const qvstring& key) const {
    const Member* const member = Find(key);
    if (!member)
        return nullptr;
    member->second->AddRef();
    return member->second;
}

bool JSONValueObject::QueryNumericValue(const qvstring& key, double& value) const {
    const Member* const member = Find(key);
    return member && member->second->GetNumericValue(value);
}

bool JSONValueObject::QueryStringValue(const qvstring& key, char* buffer, unsigned int size) const {
    const Member* const member = Find(key);
    return member && member->second->GetStringValue(buffer, size);
}

const JSONValueObject::Member* JSONValueObject::Find(const qvstring& key) const {
    const auto member = std::lower_bound(
        m_Members.begin(), m_Members.end(), key,
        [](const Member& candidate, const qvstring& name) { return IsBefore(candidate.first, name); });
    return member != m_Members.end() && member->first == key ? &*member : nullptr;
}

void JSONValueObject::AdoptMembers(Member* members, size_t count) {
    Member* few[kFewMembers];
    std::vector<Member*> many(count > kFewMembers ? count : 0);
    Member** const sorted = many.empty() ? few : many.data();
    std::iota(sorted, sorted + count, members);
    SortByName(sorted, count);
    m_Members.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        Member* const member = sorted[i];
        if (!m_Members.empty() && m_Members.back().first == member->first)
            std::exchange(m_Members.back().second, member->second)->Release();
        else
            m_Members.push_back(std::move(*member));
    }
}
