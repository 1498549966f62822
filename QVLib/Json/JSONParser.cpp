// From tokens to values.
//
// The grammar is read token by token. Where the text lies in memory, a look at the next character often says enough
// that no token need be made: a bracket, a comma, a plain string, a plain number. Whatever such a look does not
// settle is left to the tokens, so both see the same language.
//
// Containers are kept on a stack of our own, so that nesting costs no stack of the thread's.
#include "JSONNumber.h"
#include <QVLib/Json/JSONParseContext.h>
#include <QVLib/Json/JSONValue.h>
#include <array>

class JSONParser {
public:
    explicit JSONParser(JSONParseContext& context) : m_Context(context) {}
    ~JSONParser();
    JSONParser(const JSONParser&) = delete;
    JSONParser& operator=(const JSONParser&) = delete;

    // The value with a reference for the caller; null after an error, which is logged.
    JSONValue* Parse();

private:
    // A container that is not closed yet, and where its contents begin on the stacks below.
    struct Container {
        bool bObject;
        size_t begin;
    };

    enum class Step { Value, Open, Failed };

    Step ReadValue(JSONValue*& value);
    Step ReadValueFromToken(JSONValue*& value);
    Step OpenContainer(bool bObject);
    bool ReadName();
    void Attach(JSONValue* value);
    bool ReadSeparator(bool& bClosed);
    JSONValue* Close();

    bool TakeIf(char character);
    bool TakePlainString(qvstring& text);
    bool TakePlainNumber(double& value);
    Step ReadNegativeNumber(JSONValue*& value);

    JSONParseContext& m_Context;
    CParseToken m_Token;
    std::vector<Container> m_Containers;
    std::vector<JSONValue*> m_Elements;             // of the open arrays
    std::vector<JSONValueObject::Member> m_Members; // of the open objects; the last may lack its value
};

namespace {

template<class T, class... Arguments>
JSONValue* NewValue(Arguments&&... arguments) {
    JSONValue* const value = new T(std::forward<Arguments>(arguments)...);
    value->AddRef();
    return value;
}

// The characters of a plain string: ASCII from the blank, but for what ends it or begins an escape.
constexpr std::array<bool, 256> kPlainCharacters = [] {
    std::array<bool, 256> plain{};
    for (size_t character = ' '; character < 128; ++character)
        plain[character] = character != '"' && character != '\\';
    return plain;
}();

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

// Where a run of digits ends.
size_t SkipDigits(std::string_view text, size_t at) {
    while (at < text.size() && IsDigit(text[at]))
        ++at;
    return at;
}

} // namespace

JSONValue* JSONValue::ParseProperty(JSONParseContext& context) {
    return JSONParser(context).Parse();
}

JSONParser::~JSONParser() {
    for (JSONValue* const value : m_Elements)
        value->Release();
    for (const auto& member : m_Members) {
        if (member.second)
            member.second->Release();
    }
}

JSONValue* JSONParser::Parse() {
    for (;;) {
        JSONValue* value = nullptr;
        switch (ReadValue(value)) {
        case Step::Failed:
            return nullptr;
        case Step::Open:
            if (TakeIf(m_Containers.back().bObject ? '}' : ']'))
                value = Close();
            else if (m_Containers.back().bObject && !ReadName())
                return nullptr;
            else
                continue;
            break;
        case Step::Value:
            break;
        }
        // The value is whole. It may be the last of its container, and that the last of the next one.
        for (bool bClosed = true; bClosed;) {
            if (m_Containers.empty())
                return value;
            Attach(value);
            if (!ReadSeparator(bClosed))
                return nullptr;
            if (bClosed)
                value = Close();
            else if (m_Containers.back().bObject && !ReadName())
                return nullptr;
        }
    }
}

JSONParser::Step JSONParser::ReadValue(JSONValue*& value) {
    switch (const int next = m_Context.PeekNextCharacterSkipWS()) {
    case '"': {
        qvstring text;
        if (!TakePlainString(text))
            break;
        value = NewValue<JSONValueString>(std::move(text));
        return Step::Value;
    }
    case '[':
    case '{':
        if (m_Containers.size() >= JSONMaxDepth)
            break; // let the token tell where
        m_Context.TakeNextCharacter();
        return OpenContainer(next == '{');
    default: {
        double number = 0;
        if (!IsDigit(static_cast<char>(next)) || !TakePlainNumber(number))
            break;
        value = NewValue<JSONValueNumeric>(number);
        return Step::Value;
    }
    }
    return ReadValueFromToken(value);
}

JSONParser::Step JSONParser::ReadValueFromToken(JSONValue*& value) {
    switch (const int type = m_Context.GetNextJSONToken(m_Token)) {
    case JSONTokenTrue:
    case JSONTokenFalse:
        value = NewValue<JSONValueBoolean>(type == JSONTokenTrue);
        return Step::Value;
    case JSONTokenNull:
        value = NewValue<JSONValueNull>();
        return Step::Value;
    case '-':
        return ReadNegativeNumber(value);
    case JSONTokenNumber:
        value = NewValue<JSONValueNumeric>(JSONParseContext::NumberFromToken(m_Token));
        return Step::Value;
    case JSONTokenString: {
        qvstring text;
        JSONParseContext::TranslateJSONStringToken(m_Token, text);
        value = NewValue<JSONValueString>(std::move(text));
        return Step::Value;
    }
    case '[':
    case '{':
        if (m_Containers.size() < JSONMaxDepth)
            return OpenContainer(type == '{');
        m_Context.LogSyntaxError(m_Token);
        return Step::Failed;
    default:
        m_Context.LogUnexpectedTokenError(m_Token, "JSON Property Value");
        return Step::Failed;
    }
}

JSONParser::Step JSONParser::ReadNegativeNumber(JSONValue*& value) {
    double number = 0;
    if (!IsDigit(static_cast<char>(m_Context.PeekNextCharacterSkipWS())) || !TakePlainNumber(number)) {
        if (m_Context.GetNextJSONToken(m_Token) != JSONTokenNumber) {
            m_Context.LogUnexpectedTokenError(m_Token, "Numeric value");
            return Step::Failed;
        }
        number = JSONParseContext::NumberFromToken(m_Token);
    }
    value = NewValue<JSONValueNumeric>(-number);
    return Step::Value;
}

JSONParser::Step JSONParser::OpenContainer(bool bObject) {
    m_Containers.push_back({bObject, bObject ? m_Members.size() : m_Elements.size()});
    return Step::Open;
}

// Reads a member's name and the colon behind it.
bool JSONParser::ReadName() {
    qvstring name;
    if (m_Context.PeekNextCharacterSkipWS() != '"' || !TakePlainString(name)) {
        if (m_Context.GetNextJSONToken(m_Token) != JSONTokenString) {
            m_Context.LogUnexpectedTokenError(m_Token, "Property Name");
            return false;
        }
        JSONParseContext::TranslateJSONStringToken(m_Token, name);
    }
    m_Members.emplace_back(std::move(name), nullptr);
    if (TakeIf(':'))
        return true;
    m_Context.GetNextJSONToken(m_Token);
    m_Context.LogUnexpectedTokenError(m_Token, ":");
    return false;
}

void JSONParser::Attach(JSONValue* value) {
    if (m_Containers.back().bObject)
        m_Members.back().second = value;
    else
        m_Elements.push_back(value);
}

// Reads what stands behind an element: a comma, or the end of the innermost container.
bool JSONParser::ReadSeparator(bool& bClosed) {
    bClosed = false;
    if (TakeIf(','))
        return true;
    bClosed = TakeIf(m_Containers.back().bObject ? '}' : ']');
    if (bClosed)
        return true;
    m_Context.GetNextJSONToken(m_Token);
    m_Context.LogUnexpectedTokenError(m_Token, ",");
    return false;
}

// Makes the innermost container of what is on the stacks for it.
JSONValue* JSONParser::Close() {
    const auto [bObject, begin] = m_Containers.back();
    m_Containers.pop_back();
    if (bObject) {
        auto* const object = new JSONValueObject;
        object->AddRef();
        object->AdoptMembers(m_Members.data() + begin, m_Members.size() - begin);
        m_Members.erase(m_Members.begin() + static_cast<std::ptrdiff_t>(begin), m_Members.end());
        return object;
    }
    auto* const array = new JSONValueArray;
    array->AddRef();
    const auto first = m_Elements.begin() + static_cast<std::ptrdiff_t>(begin);
    array->m_Values.assign(first, m_Elements.end());
    m_Elements.erase(first, m_Elements.end());
    return array;
}

// Takes the next token if it is that character.
bool JSONParser::TakeIf(char character) {
    const int next = m_Context.PeekNextCharacterSkipWS();
    if (next == character) {
        m_Context.TakeNextCharacter();
        return true;
    }
    if (next >= 0)
        return false;
    if (m_Context.GetNextJSONToken(m_Token) == character)
        return true;
    m_Context.ReplaceToken(std::move(m_Token));
    return false;
}

// Takes a string of plain ASCII that is closed and holds no escape; its characters are its content. A peek has just
// told that it starts here; so it has for a number below.
bool JSONParser::TakePlainString(qvstring& text) {
    CTextInput& input = *m_Context.GetTextInput();
    const std::string_view source = input.PeekText();
    size_t at = 1;
    while (at < source.size() && kPlainCharacters[static_cast<unsigned char>(source[at])])
        ++at;
    if (at == source.size() || source[at] != '"')
        return false;
    text.assign(source, 1, at - 1);
    input.TakePlainAscii(static_cast<unsigned int>(at + 1));
    return true;
}

// Takes a number without an exponent whose end can be seen.
bool JSONParser::TakePlainNumber(double& value) {
    CTextInput& input = *m_Context.GetTextInput();
    const std::string_view source = input.PeekText();
    size_t at = SkipDigits(source, 0);
    if (at == 0)
        return false;
    if (at < source.size() && source[at] == '.')
        at = SkipDigits(source, at + 1);
    // A second point would join the first to another token, and a letter may be an exponent.
    if (at == source.size() || source[at] == '.' || (source[at] | 0x20) == 'e')
        return false;
    value = qv_number_from_text(source.substr(0, at));
    input.TakePlainAscii(static_cast<unsigned int>(at));
    return true;
}
