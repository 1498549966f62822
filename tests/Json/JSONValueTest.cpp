#include "../Parsing/ParsingTesting.h"
#include "support/SmallStack.h"
#include <QVLib/Json/JSONParseContext.h>
#include <QVLib/Json/JSONValue.h>
#include <QVLib/Parsing/ErrorLog.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutput.h>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>

namespace {

struct Releaser {
    void operator()(JSONValue* value) const { value->Release(); }
};
using Value = std::unique_ptr<JSONValue, Releaser>;

struct Parsed {
    Value value;
    std::string messages;
    std::string rest; // the token behind the value
};

Parsed Parse(CTextInput& input) {
    COutputLogToString log;
    JSONParseContext context(&input, &log);
    Parsed parsed;
    parsed.value.reset(JSONValue::ParseProperty(context));
    EXPECT_EQ(parsed.value == nullptr, context.GetErrorCount() == 1) << log.GetString();
    parsed.messages = log.GetString();
    CParseToken token;
    context.GetNextJSONToken(token);
    parsed.rest = token.Text();
    return parsed;
}

Parsed Parse(const std::string& text) {
    TextInputQVString input(text, "n");
    return Parse(input);
}

std::string Format(const JSONValue& value, bool pretty = false) {
    CTextOutputString out;
    value.Format(pretty, out);
    return out.GetString();
}

void ExpectAccepted(const std::string& text, const std::string& compact, const std::string& rest = "") {
    SCOPED_TRACE(text);
    const Parsed parsed = Parse(text);
    ASSERT_TRUE(parsed.value) << parsed.messages;
    EXPECT_EQ(Format(*parsed.value), compact);
    EXPECT_EQ(parsed.rest, rest);
    // Text that is in memory only in part, or not at all, is read token by token.
    for (const unsigned int readSize : ReadSizes) {
        ChunkedInput input(text, readSize);
        const Parsed again = Parse(input);
        ASSERT_TRUE(again.value) << readSize;
        EXPECT_EQ(Format(*again.value), compact) << readSize;
        EXPECT_EQ(again.rest, rest) << readSize;
    }
}

TEST(JSONParser, Accepts) {
    const struct {
        std::string text;
        std::string compact;
        std::string rest = "";
    } rows[] = {
        {R"({"b":1,"a":2})", R"({"a":2,"b":1})"},
        {R"({"a":1,"a":2, "A":3})", R"({"A":3,"a":2})"},
        {R"({"z":1,"a":[],"m":{},"a":{"b":[{}]}})", R"({"a":{"b":[{}]},"m":{},"z":1})"},
        {"- 5", "-5"},
        {"-\n5 x", "-5", "x"},
        {"1.5e-3", "0.0015"},
        {"2E+10", "2e+10"},
        {"7.", "7"},
        {"7.e2,", "700", ","},
        {"1e5", "100000"},
        {"1e", "1"},
        {"1e+", "1"},
        {"1e+]", "1", "]"},
        {"1e5x", "1", "e5x"},
        {"1.5.3", "1.5", "."},
        {"1..2", "1", ".."},
        {"1...2", "1", "..."},
        {"0x10", "0", "x10"},
        {"1 .5", "1", "."},
        {"007", "7"},
        {"123456789", "1.23457e+08"},
        {"1234567", "1.23457e+06"},
        {"1e21", "1e+21"},
        {"[1e-99999999999999999999]", "[0]"},
        {"123456789012345678901234567890", "1.23457e+29"},
        {"True", "true"},
        {"FALSE", "false"},
        {"NULL", "null"},
        {R"("\u0041\u00e9")", "\"Aé\""},
        {R"("\x\/\\\"\b\f\n\r\t")", R"("x/\\\"\b\f\n\r\t")"},
        {R"("\u4z\u")", "\"\\u0004z\\u0000\""},
        {R"("\ud83d")", "\"\xed\xa0\xbd\""},
        {"\"a\nb\"", R"("a\nb")"},
        {"\"a\r\nb\tc\x1f\x7f\"", "\"a\\nb\\tc\\u001F\x7f\""},
        {"\"hé€\" 1", "\"hé€\"", "1"},
        {R"("open)", R"("open")"},
        {R"("open\)", R"("open")"},
        {" \n\t[ 1 , {\"a\" : null} ] ", R"([1,{"a":null}])"},
        {"{} {}", "{}", "{"},
    };
    for (const auto& row : rows)
        ExpectAccepted(row.text, row.compact, row.rest);
    for (const char* const same : {"[1,2,3]", "-5", "-0", "0.1", "\"\"", "[[],[[]],{}]"})
        ExpectAccepted(same, same);
    for (const char* const huge :
         {"1e999", "1000000000000000000000000e300", "1e99999999999999999999", "1e9223372036854775807"})
        ExpectAccepted(huge, "inf");
    for (const char* const tiny :
         {"1e-999", "0.0000001e-400", "0.001e-9223372036854775807", "0e9223372036854775807"})
        ExpectAccepted(tiny, "0");
}

TEST(JSONParser, RefusesWithOneMessageAtThePlace) {
    const std::pair<std::string, const char*> rows[] = {
        {"", "n(1,1-1): error 101: Found 'End of File' when expecting 'JSON Property Value'."},
        {"+5", "n(1,1-2): error 101: Found '+' when expecting 'JSON Property Value'."},
        {"- x", "n(1,3-4): error 101: Found 'x' when expecting 'Numeric value'."},
        {"--5", "n(1,2-3): error 101: Found '-' when expecting 'Numeric value'."},
        {"[1,]", "n(1,4-5): error 101: Found ']' when expecting 'JSON Property Value'."},
        {"[1 2]", "n(1,4-5): error 101: Found '2' when expecting ','."},
        {"[1", "n(1,3-3): error 101: Found 'End of File' when expecting ','."},
        {"[\n  1\n  }", "n(3,3-4): error 101: Found '}' when expecting ','."},
        {"{1:2}", "n(1,2-3): error 101: Found '1' when expecting 'Property Name'."},
        {"{\"a\":1,}", "n(1,8-9): error 101: Found '}' when expecting 'Property Name'."},
        {"{\"a\" 1}", "n(1,6-7): error 101: Found '1' when expecting ':'."},
        {"{\"a\":}", "n(1,6-7): error 101: Found '}' when expecting 'JSON Property Value'."},
        {"{\"a\":[{\"b\":tru}]}", "n(1,12-15): error 101: Found 'tru' when expecting 'JSON Property Value'."},
        {"[\"open", "n(1,7-7): error 101: Found 'End of File' when expecting ','."},
        {"{\"a", "n(1,4-4): error 101: Found 'End of File' when expecting ':'."},
    };
    for (const auto& [text, message] : rows) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Parse(text).messages, std::string(message) + "\n");
        for (const unsigned int readSize : ReadSizes) {
            ChunkedInput input(text, readSize);
            EXPECT_EQ(Parse(input).messages, std::string(message) + "\n") << readSize;
        }
    }
}

TEST(JSONParser, LimitsDepth) {
    const auto nested = [](unsigned int depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    std::string objects;
    for (int i = 0; i < 1'000'000; ++i)
        objects += "{\"a\":";
    RunOnSmallStack([&] {
        const std::string deepest = nested(JSONMaxDepth);
        const Parsed parsed = Parse(deepest);
        ASSERT_TRUE(parsed.value);
        if (SmallFrames) {
            EXPECT_EQ(Format(*parsed.value), deepest);
            EXPECT_GT(Format(*parsed.value, true).size(), deepest.size());
            EXPECT_FALSE(parsed.value->CastToBoolean());
        }
        EXPECT_EQ(Parse(nested(JSONMaxDepth + 1)).messages,
                  "n(1,1001-1002): error 106: Syntax error near '['.\n");
        TextInputQVString input(objects, "n");
        EXPECT_EQ(Parse(input).messages, "n(1,5001-5002): error 106: Syntax error near '{'.\n");
    });
}

// A square of these would take minutes.
TEST(JSONParser, LongTextsStayLinear) {
    const std::pair<const char*, const char*> texts[] = {
        {"[", "\""},  {"[", "[],"}, {"[", "\"aé\","}, {"[\"", "\\"}, {"[\"", "\\u00e9"},
        {"[1,", "7"}, {"0.", "7"},  {"[1e", "9"},     {"[", "."},    {"[", "a"}};
    for (const auto& [start, piece] : texts) {
        std::string text = start;
        for (int i = 0; i < 200'000; ++i)
            text += piece;
        for (const unsigned int readSize : {0u, 4096u}) {
            ChunkedInput input(text, readSize);
            EXPECT_LE(Parse(input).messages.size(), 1024u);
        }
    }
}

TEST(JSONParser, GoesOnWithTokensThatWerePushedBack) {
    COutputLogToString log;
    const std::string text = "- 1 [2] \"s\" : 3";
    TextInputQVString input(text, "n");
    JSONParseContext context(&input, &log);
    for (const char* expected : {"-1", "[2]", "\"s\""}) {
        CParseToken token;
        context.GetNextJSONToken(token);
        context.ReplaceToken(std::move(token));
        const Value value(JSONValue::ParseProperty(context));
        ASSERT_TRUE(value);
        EXPECT_EQ(Format(*value), expected);
    }
}

TEST(JSONParser, MarksAStringThatTheTextEndsIn) {
    for (const char* const text : {"\"a\"", "\"a", "\"a\\\""}) {
        COutputLogNull log;
        TextInputQVString input(text, "n");
        JSONParseContext context(&input, &log);
        CParseToken token;
        EXPECT_EQ(context.GetNextJSONToken(token), JSONTokenString);
        EXPECT_EQ(PrintToken(token).ends_with("! "), text != std::string("\"a\""));
        EXPECT_EQ(token.Text(), text);
    }
}

// Whatever the bytes: a value or one message, and what is printed reads back as itself.
TEST(JSONParser, FormatIsAFixpointForRandomTexts) {
    const char* pieces[] = {"[",  "]",   "{",    "}",  ",",     ":",        "\"a\"", "\"b\\n\"",
                            "1",  "2.5", "-",    "e3", "true",  "null",     " ",     "\n",
                            "\"", "\\",  "\x80", "é",  "[1,2]", "{\"k\":0}"};
    std::mt19937 random(20211);
    for (int i = 0; i < 20'000; ++i) {
        std::string text = i % 2 ? "[" : "";
        for (unsigned int count = static_cast<unsigned int>(random() % 12); count > 0; --count)
            text += pieces[random() % std::size(pieces)];
        if (i % 2)
            text += "]";
        const Parsed parsed = Parse(text);
        if (!parsed.value)
            continue;
        const std::string once = Format(*parsed.value);
        if (once.find("inf") != std::string::npos)
            continue; // which JSON has no word for
        const Parsed again = Parse(once);
        ASSERT_TRUE(again.value) << text << " -> " << once;
        ASSERT_EQ(Format(*again.value), once) << text;
    }
}

// Short numbers have a way of their own; it must not show, above all not next to where six digits round.
TEST(JSONValue, NumbersAreThoseOfTheCLibrary) {
    std::mt19937_64 random(7);
    const auto check = [](double value) {
        char text[64];
        std::snprintf(text, sizeof text, "%g", value);
        ASSERT_EQ(Format(JSONValueNumeric(value)), text);
        std::snprintf(text, sizeof text, "%.*f", static_cast<int>(std::fabs(std::fmod(value * 7, 12))),
                      value);
        double read = -1;
        const Parsed parsed = Parse(text);
        ASSERT_TRUE(parsed.value && parsed.value->GetNumericValue(read)) << text;
        ASSERT_EQ(read, std::strtod(text, nullptr)) << text;
    };
    for (const double value : {0.0, -0.0, 0.001, 0.00099999949, 0.0099999995, 999999.4, 999999.5, 1e6, 1e-4})
        check(value);
    for (int i = 0; i < 100'000; ++i) {
        const double power = std::pow(10, static_cast<double>(random() % 14) - 5);
        const double digits = static_cast<double>(random() % 20'000'000) / 2 - 5'000'000;
        const double middle = digits / 1e6 * power;
        for (const double near :
             {middle, std::nextafter(middle, HUGE_VAL), std::nextafter(middle, -HUGE_VAL)})
            check(near);
        check(static_cast<double>(random() >> 11) * power * 0x1p-53);
    }
}

TEST(JSONValue, FormatsPretty) {
    const Parsed parsed = Parse(std::string(R"({"a":1,"b":{"c":true},"d":[1,[]],"e":{}})"));
    EXPECT_EQ(Format(*parsed.value, true), "{\n"
                                           "  \"a\":1,\n"
                                           "  \"b\":{\n"
                                           "    \"c\":true},\n"
                                           "  \"d\":[\n"
                                           "    1,\n"
                                           "    [\n"
                                           "    ]],\n"
                                           "  \"e\":{\n"
                                           "  }}");
}

// The text of a string is the string itself, and of everything else what Format() prints.
TEST(JSONValue, TruthAndText) {
    const auto evaluate = [](const std::string& text, bool truth) {
        const Parsed parsed = Parse(text);
        EXPECT_EQ(parsed.value->CastToBoolean(), truth) << text;
        CTextOutputString out;
        parsed.value->Evaluate(out);
        return out.GetString();
    };
    for (const char* const text : {"null", "0", "[]", "[0,\"\"]", "{}"})
        EXPECT_EQ(evaluate(text, false), text);
    for (const char* const text : {"true", "-0.5", "[0,1]", "{\"a\":0}", "[[0,[\"x\"]]]"})
        EXPECT_EQ(evaluate(text, true), text);
    EXPECT_EQ(evaluate("\"\"", false), "");
    EXPECT_EQ(evaluate("\"a\\n\"", true), "a\n");
}

TEST(JSONValue, ArraysAndObjectsHoldTheirValues) {
    const Value array = Parse(std::string("[1,2]")).value;
    const auto& values = static_cast<const JSONValueArray&>(*array);
    EXPECT_EQ(values.GetValueCount(), 2u);
    for (const auto& [index, expected] : {std::pair(0, "1"), {1, "2"}, {-1, "2"}, {-2, "1"}})
        EXPECT_EQ(Format(*Value(values.LookupValue(index))), expected);
    for (const int index : {2, -3, INT_MAX, INT_MIN})
        EXPECT_EQ(values.LookupValue(index), nullptr);

    JSONValueObject object;
    object.AddValue("text", "t");
    object.AddValue("flag", true);
    object.AddValue("number", 7);
    object.AddValue("copy", qvstring("c"));
    object.AddValue("number", 8);
    const Value text(object.FindMember("text"));
    object.AddValue("text", text.get()); // the value that it already holds
    EXPECT_EQ(Format(object), R"({"copy":"c","flag":true,"number":8,"text":"t"})");
    EXPECT_EQ(object.FindMember("none"), nullptr);

    double number = 0;
    char buffer[2] = "";
    EXPECT_TRUE(object.QueryNumericValue("number", number));
    EXPECT_EQ(number, 8);
    EXPECT_FALSE(object.QueryNumericValue("text", number));
    EXPECT_FALSE(object.QueryNumericValue("none", number));
    object.AddValue("long", "abc");
    EXPECT_TRUE(object.QueryStringValue("long", buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "a");
    EXPECT_FALSE(object.QueryStringValue("number", buffer, sizeof buffer));
}

} // namespace
