#include "../Parsing/ParsingTesting.h"
#include "support/DecimalComma.h"
#include "support/SmallStack.h"
#include <QVLib/Json/JSONValue.h>
#include <QVLib/Json/JSONata.h>
#include <QVPlatform/TextOutput.h>
#include <gtest/gtest.h>
#include <map>
#include <vector>

namespace {

const char* const Document = R"({"a":{"b":[10,20,30]},"s":"x","n":null,"i":1,"t":true,"o":{},"e":"","in":5,)"
                             R"("my field":[7,8],"deep":[[1,2],[3,{"k":"v"}]]})";

// An expression and what its parsing said.
struct Compiled {
    explicit Compiled(const qvstring& text, unsigned int readSize = 4096) {
        ChunkedInput input(text, readSize);
        COutputLogToString log;
        JSONParseContext context(&input, &log);
        m_bParsed = m_Expr.ParseJSONataExpr(context);
        m_Messages = log.GetString();
        EXPECT_EQ(m_bParsed ? 0u : 1u, context.GetErrorCount()) << text << m_Messages;
        CParseToken next;
        if (context.GetNextJSONToken(next) != TokenEndOfFile)
            m_Rest = next.Text();
    }

    std::string Print() const {
        CTextOutputString out;
        m_Expr.FormatJSONataExpr(out);
        return out.GetString();
    }
    // Compact JSON or "no value", and messages behind it.
    std::string Evaluate(JSONValue* input) const {
        CErrorLogToString log;
        CTextOutputString out;
        if (JSONValue* const value = m_Expr.Evaluate(input, log)) {
            value->Format(false, out);
            value->Release();
        } else {
            out.WriteString("no value");
        }
        return out.GetString() + (log.GetErrorCount() ? " " + log.GetString() : "");
    }

    JSONataExpr m_Expr;
    bool m_bParsed;
    std::string m_Messages;
    std::string m_Rest;
};

class JSONataTest : public testing::Test {
protected:
    JSONataTest() {
        TextInputQVString input(Document, "document");
        COutputLogNull log;
        JSONParseContext context(&input, &log);
        m_pDocument = JSONValue::ParseProperty(context);
    }
    ~JSONataTest() override { m_pDocument->Release(); }

    // Expressions over the document, and what they evaluate to.
    using Rows = std::vector<std::pair<std::string, std::string>>;
    void ExpectValues(const Rows& rows) const {
        for (const auto& [text, result] : rows) {
            const Compiled compiled(text);
            ASSERT_TRUE(compiled.m_bParsed) << compiled.m_Messages;
            EXPECT_EQ(compiled.Evaluate(m_pDocument), result) << text;
            EXPECT_EQ(Compiled(compiled.Print()).Print(), compiled.Print());
        }
    }

    JSONValue* m_pDocument;
};

std::string Repeat(const std::string& text, unsigned int count) {
    std::string repeated;
    while (count-- != 0)
        repeated += text;
    return repeated;
}

// A random expression, every kind of node at every place it may have. '@' and a letter stand for a form of that letter's
// list, and where the depth is used up for the list's first one.
std::string MakeExpr(std::mt19937& random, char list, int depth) {
    static const std::map<char, std::vector<std::string>> lists = {
        {'e', {"@u", "@u", "@u@o@b@u", "@u@o@b@u@o@b@u"}},
        {'u', {"@p", "@p", "@p", "@p", "-@b@p"}},
        {'p', {"@f", "@f", "@l ", "(@e)", "@c@b(@e)"}},
        {'f', {"@n", "$@s", "@n@s@s", "@n@s@s@s"}},
        {'s', {"@b", "@b.@n@b", "@b[@e]@b"}},
        {'b', {"", "", " ", "\r\n"}},
        {'c', {"$not", "$EXISTS", "$Boolean"}},
        {'n', {"a", "b", "s", "n", "in", "deep", "z9", "`my field`", "``", "`a\n.b`"}},
        // None that "%g" changes: the printed expression must have the same value.
        {'l',
         {"1", "0", "2.5e3", "7.", "TRUE", "false", "null", "\"\"", "\"x\"", "\"\n\"", R"("\u0000\"é")"}},
        {'o', {" and ", " OR ", " In ", "*", "/", "%", "+", "-", "&", "=", "!=", "<>", "<", "<=", ">", ">="}},
    };
    const std::vector<std::string>& forms = lists.at(list);
    const std::string form = forms[depth > 0 || forms[0][0] != '@' ? random() % forms.size() : 0];
    std::string text;
    for (size_t i = 0; i < form.size(); ++i)
        text += form[i] == '@' ? MakeExpr(random, form[++i], depth - 1) : std::string(1, form[i]);
    return text;
}

TEST_F(JSONataTest, PrintsTheCanonicalForm) {
    const auto expectForm = [](const std::string& text, const std::string& printed, const std::string& rest) {
        for (const unsigned int readSize : ReadSizes) {
            SCOPED_TRACE(text + " by " + std::to_string(readSize));
            const Compiled compiled(text, readSize);
            EXPECT_TRUE(compiled.m_bParsed) << compiled.m_Messages;
            EXPECT_EQ(compiled.Print(), printed);
            EXPECT_EQ(compiled.m_Rest, rest);
            EXPECT_EQ(Compiled(printed).Print(), printed);
        }
    };
    for (const char* const same : {"a and b or c", "and and or", "a.in.or in in", "x.`my field`[1]",
                                   "`a \n+`", "`true`.``", "$", "-a", "été.z"})
        expectForm(same, same, "");
    const struct {
        std::string text;
        std::string printed;
        std::string rest = "";
    } rows[] = {
        {"a.b[ 0 ]+1", "a.b[0] + 1"},
        {"$EXISTS(a)", "$exists( a )"},
        {"$Not ( \n$boolean(z) )", "$not( $boolean( z ) )"},
        {"1<>2", "1 != 2"},
        {"1e3", "1000"},
        {"1234567", "1.23457e+06"},
        {"1e999", "inf"},
        {"a AND b Or c iN d", "a and b or c in d"},
        {"1*2/3%4+5-6&7=8!=9<10<=11>12>=13", "1 * 2 / 3 % 4 + 5 - 6 & 7 = 8 != 9 < 10 <= 11 > 12 >= 13"},
        {"$ .a", "$.a"},
        {"$[a.b[0]] [-1]", "$[a.b[0]][-1]"},
        {"$ a", "$", "a"},
        {"$1", "$", "1"},
        {"$²", "$", "²"},
        {"- 5 - -5", "-5 - -5"},
        {"((1)+-(2))", "((1) + -(2))"},
        {"TRUE=Null", "true = null"},
        {R"("a\u0041\x\/\"" & "open)", R"("aAx/\"" & "open")"},
        {"a b", "a", "b"},
        {"a_b", "a", "_"},
        {"(a).b", "(a)", "."},
        {"$not(a)[0]", "$not( a )", "["},
        {"a..b", "a", ".."},
        {"a ... b", "a", "..."},
        {"1 . 5", "1", "."},
        {"a , b", "a", ","},
        {"(a) )", "(a)", ")"},
        {std::string("a\0b", 3), "a"},
    };
    for (const auto& row : rows)
        expectForm(row.text, row.printed, row.rest);
}

TEST_F(JSONataTest, RefusesWithOneMessage) {
    const std::pair<std::string, std::string> rows[] = {
        {"", "1-1): error 900: Found '', when expecting an expression primary."},
        {"--1", "2-3): error 900: Found '-', when expecting an expression primary."},
        {"- -a", "3-4): error 900: Found '-', when expecting an expression primary."},
        {"a => b", "4-5): error 900: Found '>', when expecting an expression primary."},
        {"a == b", "4-5): error 900: Found '=', when expecting an expression primary."},
        {"a + ", "5-5): error 900: Found '', when expecting an expression primary."},
        {"+1", "1-2): error 900: Found '+', when expecting an expression primary."},
        {"a = [1]", "5-6): error 900: Found '[', when expecting an expression primary."},
        {"{}", "1-2): error 900: Found '{', when expecting an expression primary."},
        {"'a'", "1-2): error 900: Found ''', when expecting an expression primary."},
        {"$not()", "6-7): error 900: Found ')', when expecting an expression primary."},
        {"a[]", "3-4): error 900: Found ']', when expecting an expression primary."},
        {"1 + $a", "5-7): error 907: Function '$a', not recognized."},
        {"$nots(1)", "1-6): error 907: Function '$nots', not recognized."},
        {"$true", "1-6): error 907: Function '$true', not recognized."},
        {"$é", "1-3): error 907: Function '$é', not recognized."},
        {"$not a", "6-7): error 101: Found 'a' when expecting '('."},
        {"$not", "5-5): error 101: Found 'End of File' when expecting '('."},
        {"$not(a, b)", "7-8): error 101: Found ',' when expecting ')'."},
        {"(a]", "3-4): error 101: Found ']' when expecting ')'."},
        {"(a", "3-3): error 101: Found 'End of File' when expecting ')'."},
        {"a[1", "4-4): error 101: Found 'End of File' when expecting ']'."},
        {"a[1)", "4-5): error 101: Found ')' when expecting ']'."},
        {"a.true", "3-7): error 101: Found 'true' when expecting 'Struct member name'."},
        {"a.", "3-3): error 101: Found 'End of File' when expecting 'Struct member name'."},
        {"a.\"b\"", "3-6): error 101: Found '\"b\"' when expecting 'Struct member name'."},
        {"a.$b", "3-4): error 101: Found '$' when expecting 'Struct member name'."},
        {"`abc ", "1-6): error 906: Escaped property name must be terminated with a grave accent (`)."},
        {"a.`b", "3-5): error 906: Escaped property name must be terminated with a grave accent (`)."},
    };
    for (const auto& [text, message] : rows) {
        for (const unsigned int readSize : ReadSizes) {
            const Compiled compiled(text, readSize);
            EXPECT_FALSE(compiled.m_bParsed) << text;
            EXPECT_EQ(compiled.m_Messages, "n(1," + message + "\n") << text;
        }
    }
}

// What comes of an operand that is no number: `side` is "left" or "right" of the operator at `place`.
std::string NotANumber(const std::string& place, const std::string& side, char operation) {
    return "no value n(" + place + "): error " + (side == "left" ? "901" : "902") + ": The " + side +
           " side of the '" + operation + "' operator must evaluate to a number.\n";
}

constexpr const char* Nothing = "no value";

TEST_F(JSONataTest, EvaluatesPaths) {
    const Rows rows = {{"a.b[0]", "10"},         {"a.b[-1]", "30"},
                       {"a.b[1.9]", "20"},       {"a.b[-0.9]", "10"},
                       {"a.b[-3]", "10"},        {"a.b[-4]", Nothing},
                       {"a.b[3]", Nothing},      {"a.b[4294967296]", Nothing},
                       {"a.b[-1e300]", Nothing}, {"a.b[1e999 - 1e999]", Nothing},
                       {"a.b[\"0\"]", Nothing},  {"a.b[z]", Nothing},
                       {"a.b[i]", "20"},         {"a.b[$.i]", "20"},
                       {"a.b[b]", Nothing},      {"a.b[s + 1]", NotANumber("1,7-8", "left", '+')},
                       {"s[s + 1]", Nothing},    {"deep[1][1].k", "\"v\""},
                       {"deep.k", Nothing},      {"$.deep[0]", "[1,2]"},
                       {"$[0]", Nothing},        {"`my field`[1] + in", "13"},
                       {"a.c", Nothing},         {"a.b.c", Nothing},
                       {"s.x", Nothing}};
    ExpectValues(rows);
}

TEST_F(JSONataTest, EvaluatesArithmetic) {
    const Rows rows = {{"(1 + 2) * 3", "9"},      {"8 - 3 - 2", "3"},
                       {"2 * 3 + 4 * 5", "26"},   {"5 / 2", "2.5"},
                       {"5 % -3", "2"},           {"-5 % 3", "-2"},
                       {"-a.b[0] - -i", "-9"},    {"7 / 0", "null"},
                       {"7 % 0", "null"},         {"z + 1", Nothing},
                       {"1 + z", Nothing},        {"s + z", Nothing},
                       {"-z", Nothing},           {"1 in a.b", Nothing},
                       {"z in s", Nothing},       {"1 + 2 = 3 and 4 > 3", "true"},
                       {"1 = 1 & \"x\"", "false"}};
    ExpectValues(rows);
}

TEST_F(JSONataTest, Compares) {
    const Rows equality = {{"n = null", "true"},  {"n != null", "false"}, {"z = 1", "false"},
                           {"z != 1", "false"},   {"z = z", "false"},     {"z < o", "false"},
                           {"o >= z", "false"},   {"1 = \"1\"", "false"}, {"1 != \"1\"", "true"},
                           {"s = \"x\"", "true"}, {"t = true", "true"},   {"t != false", "true"},
                           {"a = a", "false"},    {"a.b != a.b", "true"}};
    const Rows order = {{"1 < 2", "true"},
                        {"2 <= 2", "true"},
                        {"2 > 2", "false"},
                        {"2 >= 3", "false"},
                        {R"("a" < "b")", "true"},
                        {R"("z" < "é")", "true"},
                        {R"("a\u0000b" > "a\u0000a")", "true"},
                        {R"("ab" <= "a")", "false"},
                        {"1e999 - 1e999 <= 1", "true"},
                        {"1e999 - 1e999 < 1", "false"},
                        {"1e999 - 1e999 = 1e999 - 1e999", "false"}};
    ExpectValues(equality);
    ExpectValues(order);
}

TEST_F(JSONataTest, ConcatenatesStrings) {
    const Rows rows = {{"$.s & \"y\"", "\"xy\""},
                       {"s & a.b[0]", "\"x10\""},
                       {"\"a\" & 1.5", "\"a1.5\""},
                       {"z & \"x\"", "\"x\""},
                       {"z & z", "\"\""},
                       {R"(s & s & z & 1 & s & "" & (s & 2))", "\"xx1xx2\""},
                       {"a & n & t & 1234567", R"("{\"b\":[10,20,30]}nulltrue1.23457e+06")"},
                       {"\"1\n\" & 2", "\"1\\n2\""}};
    ExpectValues(rows);
}

TEST_F(JSONataTest, EvaluatesLogic) {
    const Rows rows = {{"true and 0", "false"},   {"0 or \"x\"", "true"},   {"z and true", Nothing},
                       {"true and z", Nothing},   {"false and z", "false"}, {"true or z", "true"},
                       {"z or true", Nothing},    {"false or z", Nothing},  {"o or e", "false"},
                       {"1 or 1 and 0", "true"},  {"$exists(n)", "true"},   {"$exists(z)", "false"},
                       {"$not(z)", "true"},       {"$not(a)", "false"},     {"$boolean(z)", Nothing},
                       {"$boolean(a.b)", "true"}, {"$boolean(o)", "false"}};
    ExpectValues(rows);
}

TEST_F(JSONataTest, TellsTypeErrorsAtTheOperator) {
    ExpectValues({
        {"s < 1", "no value n(1,3-4): error 905: The values either side of the operator '<' must be of the "
                  "same type.\n"},
        {"1 >= s", "no value n(1,3-5): error 905: The values either side of the operator '>=' must be of the "
                   "same type.\n"},
        {"a < 1",
         "no value n(1,3-4): error 904: The expressions either side of the operator '<' must evaluate to "
         "numeric or string values.\n"},
        {"1 <= t",
         "no value n(1,3-5): error 904: The expressions either side of the operator '<=' must evaluate to "
         "numeric or string values.\n"},
        {"s + 1", NotANumber("1,3-4", "left", '+')},
        {"1 + s", NotANumber("1,3-4", "right", '+')},
        {"1\n  % t", NotANumber("2,3-4", "right", '%')},
        {"a - 1", NotANumber("1,3-4", "left", '-')},
        {"n / 1", NotANumber("1,3-4", "left", '/')},
        {"a.b % 1", NotANumber("1,5-6", "left", '%')},
        {"1 + -t", "no value n(1,5-6): error 903: Cannot negate a non-numeric value.\n"},
        {"1/0 + 1", NotANumber("1,5-6", "left", '+')},
        {"1 - 1/0", NotANumber("1,3-4", "right", '-')},
        // All operands are evaluated, but none behind a failure
        {"false and (s * 1)",
         "false n(1,14-15): error 901: The left side of the '*' operator must evaluate to a number.\n"},
        {"s * 1 + -s", NotANumber("1,3-4", "left", '*')},
        {"z + 1 + -s", Nothing},
    });
}

TEST_F(JSONataTest, ADecimalCommaOfTheProcessChangesNothing) {
    const DecimalComma comma;
    const Compiled compiled("1.5 & 25e-1 * 3 & -0.000001 & $");
    EXPECT_EQ(compiled.Print(), "1.5 & 2.5 * 3 & -1e-06 & $");
    JSONValueNumeric input(1.0e300);
    input.AddRef();
    EXPECT_EQ(compiled.Evaluate(&input), "\"1.57.5-1e-061e+300\"");
}

TEST_F(JSONataTest, AnInputMayBeAbsentOrNoObject) {
    EXPECT_EQ(Compiled("$exists($) or $exists(a)").Evaluate(nullptr), "false");
    JSONValueString text("x");
    text.AddRef();
    EXPECT_EQ(Compiled("$ & $exists(x)").Evaluate(&text), "\"xfalse\"");
}

TEST_F(JSONataTest, APlainPathIsKnownAsOne) {
    const Compiled path("a.`b c`[0]");
    const auto* const field = path.m_Expr.GetSinglePrimaryFieldRef();
    ASSERT_TRUE(field);
    EXPECT_EQ(field->GetFieldName(), "a");
    ASSERT_EQ(field->GetSteps().size(), 2u);
    const auto* const member = dynamic_cast<const JSONataExpr::PostFixOpStruct*>(field->GetSteps()[0].get());
    ASSERT_TRUE(member);
    EXPECT_EQ(member->GetFieldName(), "b c");
    char where[32];
    member->GetLocation().PrintLocation(where, sizeof where);
    EXPECT_STREQ(where, "n(1,2-8)");
    field->GetSteps()[1]->GetLocation().PrintLocation(where, sizeof where);
    EXPECT_STREQ(where, "n(1,8-11)");
    for (const char* const other : {"-a", "(a)", "a + 1", "1", "$not(a)", ""})
        EXPECT_FALSE(Compiled(other).m_Expr.GetSinglePrimaryFieldRef()) << other;
}

TEST_F(JSONataTest, AnExpressionCanBeParsedAgain) {
    Compiled compiled("1 + 2");
    for (const bool bGood : {true, false}) {
        TextInputQVString input(bGood ? "-i" : ")", "n");
        COutputLogNull log;
        JSONParseContext context(&input, &log);
        EXPECT_EQ(compiled.m_Expr.ParseJSONataExpr(context), bGood);
        EXPECT_EQ(compiled.Evaluate(m_pDocument), bGood ? "-1" : "no value");
    }
}

TEST_F(JSONataTest, DepthIsLimitedAtTheBracketThatGoesTooDeep) {
    const struct {
        std::string open;
        std::string inner;
        std::string close;
        char bracket;
    } nests[] = {
        {"(", "1", ")", '('},        {"-(1 + ", "1", ")", '('},
        {"$not(", "1", ")", '('},    {"1 or 1 and 1 = 1 + 1 * (", "1", ")", '('},
        {"deep[0][", "0", "]", '['}, {"0 + a.b[", "0", "]", '['},
    };
    const auto printAndEvaluate = [&](const Compiled& compiled) {
        EXPECT_EQ(Compiled(compiled.Print()).Print(), compiled.Print());
        EXPECT_NE(compiled.Evaluate(m_pDocument), "");
    };
    for (const auto& nest : nests) {
        printAndEvaluate(
            Compiled(Repeat(nest.open, JSONMaxDepth) + nest.inner + Repeat(nest.close, JSONMaxDepth)));
        RunOnSmallStack([&] {
            const std::string deepest =
                Repeat(nest.open, JSONMaxDepth) + nest.inner + Repeat(nest.close, JSONMaxDepth);
            const Compiled compiled(deepest);
            EXPECT_TRUE(compiled.m_bParsed) << nest.open << compiled.m_Messages;
            if (SmallFrames)
                printAndEvaluate(compiled);

            const Compiled tooDeep(Repeat(nest.open, 1000000));
            const size_t column = JSONMaxDepth * nest.open.size() + nest.open.find(nest.bracket) + 1;
            EXPECT_EQ(tooDeep.m_Messages, "n(1," + std::to_string(column) + "-" + std::to_string(column + 1) +
                                              "): error 106: Syntax error near '" + nest.bracket + "'.\n");
        });
    }
    // Side by side is not deep.
    EXPECT_TRUE(Compiled("a" + Repeat("[0]", 5000) + Repeat(" + (1)", 5000)).m_bParsed);
}

// Were each step to copy the text so far, this would copy 45 gigabytes.
TEST_F(JSONataTest, AChainOfConcatenationsIsLinear) {
    EXPECT_EQ(Compiled("s" + Repeat("&s", 300000)).Evaluate(m_pDocument).size(), 300003u);
    EXPECT_EQ(Compiled("s & 1").Evaluate(m_pDocument), "\"x1\""); // the document is as it was
}

TEST_F(JSONataTest, RandomExpressionsPrintToThemselves) {
    std::mt19937 random(4);
    unsigned int nValues = 0;
    for (unsigned int seed = 0; seed < 3000; ++seed) {
        const std::string text = MakeExpr(random, 'e', 16);
        const Compiled compiled(text), again(compiled.Print(), ReadSizes[seed % std::size(ReadSizes)]);
        ASSERT_TRUE(compiled.m_bParsed && again.m_bParsed) << seed << ": " << text << compiled.m_Messages;
        ASSERT_EQ(compiled.m_Rest + again.m_Rest, "") << text;
        ASSERT_EQ(again.Print(), compiled.Print()) << text;
        // The messages differ by their places.
        const std::string result = compiled.Evaluate(m_pDocument), same = again.Evaluate(m_pDocument);
        ASSERT_EQ(result.substr(0, result.find(" n(")), same.substr(0, same.find(" n("))) << text;
        nValues += result != "no value";
    }
    EXPECT_GT(nValues, 300u);
}

TEST_F(JSONataTest, AnyBytesParseOrFailWithOneMessage) {
    for (unsigned int seed = 0; seed < 3000; ++seed) {
        const qvstring text = MakeRandomText(seed, 1 + seed % 12, true);
        const Compiled compiled(text), bySteps(text, 0);
        ASSERT_EQ(compiled.m_Messages + compiled.m_Rest, bySteps.m_Messages + bySteps.m_Rest) << text;
        if (compiled.m_bParsed) {
            ASSERT_EQ(Compiled(compiled.Print()).Print(), compiled.Print()) << text;
            compiled.Evaluate(m_pDocument);
        }
    }
}

} // namespace
