// JSONValue - a value of JSON: null, boolean, number, string, array or object.
//
//     CTextInput: TextInputQVString input(text, "settings.json");
//     JSONParseContext context(&input, &log);
//     if (JSONValue* value = JSONValue::ParseProperty(context)) {
//         value->Format(true, out);
//         value->Release();
//     }
//
// Ownership: values are counted. A new one starts at 0 and whoever keeps it calls AddRef(); Release() deletes the
//            value with its last reference. Every operation that returns a value has taken a reference for the
//            caller, who releases it. Arrays and objects hold one reference to each of their values.
// Meaning:   what "+" or "true" mean for a value is decided by its class, for the JSONata evaluator and others.
//            A null pointer is no value at all and differs from a JSONValueNull.
// Strings    are UTF-8. Numbers are doubles; integers are exact up to 2^53.
// Depth:     values that were parsed nest at most JSONMaxDepth levels. Whoever builds deeper ones by hand must have
//            the stack to format and to delete them.
// Threads:   one thread at a time; the counts are not atomic.
#pragma once

#include <QVPlatform/String.h>
#include <map>
#include <utility>
#include <vector>

class CErrorLog;
class CTextOutput;
class ErrorLocation;
class JSONParseContext;
class JSONWriter;

// Arrays, objects and parentheses within each other, in texts of JSON and JSONata.
inline constexpr unsigned int JSONMaxDepth = 1000;

class JSONValue {
public:
    JSONValue() = default;
    JSONValue(const JSONValue&) = delete;
    JSONValue& operator=(const JSONValue&) = delete;
    virtual ~JSONValue() = default;

    // The truth of a value: false for null, 0, the empty string, an object without members and an array without a
    // true element.
    virtual bool CastToBoolean() const = 0;
    // A number's value; false, and nothing stored, for any other kind.
    virtual bool GetNumericValue(double& value) const;
    // A string's text, as much as fits into `size` bytes with its terminator; false for any other kind.
    virtual bool GetStringValue(char* buffer, unsigned int size) const;

    // Arithmetic with this value on the left. Null, with an error at `where`, when a side is not a number.
    // Division by 0 gives the JSON null without one. The result is the caller's to release.
    virtual JSONValue* DoNegate(const ErrorLocation& where, CErrorLog& log) const;
    virtual JSONValue* DoAdd(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const;
    virtual JSONValue* DoSub(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const;
    virtual JSONValue* DoMul(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const;
    virtual JSONValue* DoDiv(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const;
    // The remainder, with the sign of the left side.
    virtual JSONValue* DoMod(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const;

    virtual bool IsBoolean() const { return false; }
    virtual bool IsNumeric() const { return false; }
    virtual bool IsString() const { return false; }
    virtual bool IsNull() const { return false; }

    // Writes the value as JSON: compact without a blank anywhere, or pretty with a line for each element. Numbers
    // have six significant digits ("%g"). Member names are written as they are, without escapes.
    virtual void Format(bool pretty, CTextOutput& out) const = 0;
    // Writes the value as text: a string as it is, everything else as compact JSON.
    virtual void Evaluate(CTextOutput& out) const;

    void AddRef() { ++m_RefCount; }
    // True while more than one reference is held.
    bool IsShared() const { return m_RefCount > 1; }
    void Release() {
        if (--m_RefCount == 0)
            delete this;
    }

    bool IsNumericOrString() const { return IsNumeric() || IsString(); }

    // Writes `text` as a JSON string, quoted and escaped.
    void EscapeString(const qvstring& text, CTextOutput& out) const;

    // Parses one value of any kind; what follows it is left to the caller. Null after one error in the context's
    // log; nothing of the value is left then.
    static JSONValue* ParseProperty(JSONParseContext& context);

protected:
    friend class JSONValueArray;
    friend class JSONValueObject;

    // The steps of Format(), for values within values.
    virtual void FormatTo(JSONWriter& out) const = 0;
    // Format() of every class here.
    void FormatWithWriter(bool pretty, CTextOutput& out) const;

private:
    unsigned int m_RefCount = 0;
};

class JSONValueNull final : public JSONValue {
public:
    bool CastToBoolean() const override { return false; }
    bool IsNull() const override { return true; }
    void Format(bool pretty, CTextOutput& out) const override { FormatWithWriter(pretty, out); }

protected:
    void FormatTo(JSONWriter& out) const override;
};

class JSONValueBoolean final : public JSONValue {
public:
    JSONValueBoolean() = default;
    explicit JSONValueBoolean(bool value) : m_bValue(value) {}

    bool CastToBoolean() const override { return m_bValue; }
    bool IsBoolean() const override { return true; }
    void Format(bool pretty, CTextOutput& out) const override { FormatWithWriter(pretty, out); }

    bool GetValue() const { return m_bValue; }

protected:
    void FormatTo(JSONWriter& out) const override;

private:
    bool m_bValue = true;
};

class JSONValueNumeric final : public JSONValue {
public:
    JSONValueNumeric() = default;
    explicit JSONValueNumeric(double value) : m_Value(value) {}

    bool CastToBoolean() const override { return m_Value != 0; }
    bool GetNumericValue(double& value) const override;
    JSONValue* DoNegate(const ErrorLocation& where, CErrorLog& log) const override;
    JSONValue* DoAdd(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const override;
    JSONValue* DoSub(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const override;
    JSONValue* DoMul(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const override;
    JSONValue* DoDiv(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const override;
    JSONValue* DoMod(JSONValue* right, const ErrorLocation& where, CErrorLog& log) const override;
    bool IsNumeric() const override { return true; }
    void Format(bool pretty, CTextOutput& out) const override { FormatWithWriter(pretty, out); }

    double GetValue() const { return m_Value; }
    void SetValue(double value) { m_Value = value; }

protected:
    void FormatTo(JSONWriter& out) const override;

private:
    double m_Value = 0;
};

class JSONValueString final : public JSONValue {
public:
    explicit JSONValueString(const qvstring& value) : m_Value(value) {}
    explicit JSONValueString(qvstring&& value) : m_Value(std::move(value)) {}

    bool CastToBoolean() const override { return !m_Value.empty(); }
    bool GetStringValue(char* buffer, unsigned int size) const override;
    bool IsString() const override { return true; }
    void Format(bool pretty, CTextOutput& out) const override { FormatWithWriter(pretty, out); }
    void Evaluate(CTextOutput& out) const override;

    const qvstring& GetValue() const { return m_Value; }
    // Only for the one holder of a value that is not shared.
    void Append(const qvstring& text) { m_Value += text; }

protected:
    void FormatTo(JSONWriter& out) const override;

private:
    qvstring m_Value;
};

class JSONValueArray final : public JSONValue {
public:
    JSONValueArray() = default;
    ~JSONValueArray() override;

    bool CastToBoolean() const override;
    void Format(bool pretty, CTextOutput& out) const override { FormatWithWriter(pretty, out); }

    unsigned int GetValueCount() const { return static_cast<unsigned int>(m_Values.size()); }
    // The element at an index from 0, or from the end when negative (-1 is the last); null outside the array.
    JSONValue* LookupValue(int index) const;
    // Appends a value, with a reference of the array's own.
    void AddValue(JSONValue* value);

    const std::vector<JSONValue*>& GetValues() const { return m_Values; }

protected:
    void FormatTo(JSONWriter& out) const override;

private:
    friend class JSONParser;

    std::vector<JSONValue*> m_Values;
};

class JSONValueObject final : public JSONValue {
public:
    // A member: its name and its value.
    using Member = std::pair<qvstring, JSONValue*>;

    JSONValueObject() = default;
    ~JSONValueObject() override;

    bool CastToBoolean() const override { return !m_Members.empty(); }
    void Format(bool pretty, CTextOutput& out) const override { FormatWithWriter(pretty, out); }

    // Sets a member, with a reference of the object's own to `value`; a value set before is released.
    void AddValue(const qvstring& key, JSONValue* value);
    void AddValue(const qvstring& key, const char* value);
    void AddValue(const qvstring& key, bool value);
    void AddValue(const qvstring& key, int value);
    void AddValue(const qvstring& key, const qvstring& value);

    // The member's value, null when there is none.
    JSONValue* FindMember(const qvstring& key) const;
    // The value of a member that is a number, or a string (bounded and terminated); false for any other.
    bool QueryNumericValue(const qvstring& key, double& value) const;
    bool QueryStringValue(const qvstring& key, char* buffer, unsigned int size) const;

    // In the order of their names, byte by byte.
    const std::vector<Member>& GetMembers() const { return m_Members; }

protected:
    void FormatTo(JSONWriter& out) const override;

private:
    friend class JSONParser;

    const Member* Find(const qvstring& key) const;
    // For an object without members: takes over those given, in any order, and one reference to each; of equal
    // names the last stays.
    void AdoptMembers(Member* members, size_t count);

    std::vector<Member> m_Members; // sorted by name
};
