#include <gmock/gmock.h>

#include "QvProgram.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::string Repeat(const std::string& text, unsigned int count) {
    std::string repeated;
    while (count-- != 0)
        repeated += text;
    return repeated;
}

// AddressSanitizer takes more address space than any limit leaves.
#ifdef __SANITIZE_ADDRESS__
const std::string MemoryLimit;
#else
const std::string MemoryLimit = "ulimit -v 250000; ";
#endif

class QvJson : public QvProgram {
protected:
    // Runs an evaluation that finds nothing wrong; returns what it printed.
    std::string Eval(const std::string& expression, const std::string& input) {
        m_Folder.Write("in.json", input);
        return Do("json eval '" + expression + "' in.json");
    }
};

} // namespace

TEST_F(QvJson, FormatLosesNothing) {
    const struct {
        const char* input;
        const char* output;
    } cases[] = {
        {" [ 1 , 2.50,-0, 1e5, 123456789, 0.1, 1E-3 ] ", "[1,2.5,-0,100000,123456789,0.1,0.001]"},
        // The places where JavaScript changes over, a double's limits, and one digit more than it holds.
        {"[1e20,1e21,0.000001,1.25e-7]", "[100000000000000000000,1e+21,0.000001,1.25e-7]"},
        {"[999999999999999.5,1e15,9007199254740993]",
         "[999999999999999.5,1000000000000000,9007199254740992]"},
        {"[1.7976931348623157e308,5e-324,2.2250738585072014e-308]",
         "[1.7976931348623157e+308,5e-324,2.2250738585072014e-308]"},
        {"[0.30000000000000004,123456789012345678,1e999,-1e999]",
         "[0.30000000000000004,123456789012345680,1e999,-1e999]"},
        {R"({"b\"\n\u0001":1,"a\\":"\/\b\f\r\t\u007f"})",
         "{\"a\\\\\":\"/\\b\\f\\r\\t\x7F\",\"b\\\"\\n\\u0001\":1}"},
        {R"(["\ud83d\ude00","\uD800x","\u00e4퀀"])", R"(["\uD83D\uDE00","\uD800x","ä퀀"])"},
        {R"({"a":1,"a":2})", R"({"a":2})"},
        {"\xEF\xBB\xBF[TRUE,Null,007.]", "[true,null,7]"},
        {R"("\u0000")", R"("\u0000")"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.input);
        m_Folder.Write("in.json", each.input);
        const std::string output = Do("json format --compact in.json");
        EXPECT_EQ(output, std::string(each.output) + "\n");
        // What was printed is understood, and formatted to the same.
        EXPECT_EQ(Do("json format --compact", "printf '%s' '" + output + "' |"), output);
    }
}

TEST_F(QvJson, FormatIsLaidOutAsTheLibraryDoes) {
    const std::string pretty = "{\n  \"a\":1,\n  \"b\":{\n    \"c\":[\n      true,\n      {\n      }]}}\n";
    m_Folder.Write("in.json", R"({"b":{"c":[true,{}]},"a":1})");
    EXPECT_EQ(Do("json format in.json"), pretty);
    EXPECT_EQ(Do("json format --pretty -", "cat in.json |"), pretty);
    EXPECT_EQ(Do("json format in.json --compact --json"), "{\"a\":1,\"b\":{\"c\":[true,{}]}}\n");
}

TEST_F(QvJson, FindingsShowTheirPlace) {
    const std::string wide = "\"名前\"";
    const struct {
        std::string input;
        std::string error;
    } cases[] = {
        {"", "in(1,1-1): error 101: Found 'End of File' when expecting 'JSON Property Value'.\n"
             "  1 |\n    | ^\n"},
        {"[1,\r\n2,\r\n", "in(3,1-1): error 101: Found 'End of File' when expecting 'JSON Property Value'.\n"
                          "  3 |\n    | ^\n"},
        {"{\n\t\"a\" :\ttru }", "in(2,8-11): error 101: Found 'tru' when expecting 'JSON Property Value'.\n"
                                "  2 |     \"a\" :   tru }\n    |             ^^^\n"},
        {"{" + wide + ":値}", "in(1,7-8): error 101: Found '値' when expecting 'JSON Property Value'.\n"
                              "  1 | {" +
                                  wide + ":値}\n    |         ^^\n"},
        {"[\"e\xCC\x81\" 1]", "in(1,7-8): error 101: Found '1' when expecting ','.\n"
                              "  1 | [\"e\xCC\x81\" 1]\n    |      ^\n"},
        {"{\"a\x1b\" \x1b[0m}", "in(1,7-8): error 101: Found '␛' when expecting ':'.\n"
                                "  1 | {\"a␛\" ␛[0m}\n    |       ^\n"},
        {"{\"a\":1,\"b\nc\"}", "in(2,3-4): error 101: Found '}' when expecting ':'.\n"
                               "  2 | c\"}\n    |   ^\n"},
        {"[1] \"b\nc\"", "in(1,5-3): error 101: Found '\"b␊c\"' when expecting 'End of File'.\n"
                         "  1 | [1] \"b\n    |     ^^\n"},
        {"{\"a\":1}\n{\"a\":2}\n", "in(2,1-2): error 101: Found '{' when expecting 'End of File'.\n"
                                   "  2 | {\"a\":2}\n    | ^\n"},
        {"\"abc", "in(1,5-5): error 104: Missing '\"' before 'End of File'.\n  1 | \"abc\n    |     ^\n"},
        {std::string("[1\0]", 4), "in(1,3-3): error 101: Found 'End of File' when expecting ','.\n"
                                  "  1 | [1␀]\n    |   ^\n"},
        {std::string("[1]\n \0[", 7), "in(2,2-3): error: A zero byte ends the text here.\n"
                                      "  2 |  ␀[\n    |  ^\n"},
        {Repeat("[", 1001), "in(1,1001-1002): error 106: Syntax error near '['.\n  1 | ..." +
                                Repeat("[", 70) + "\n    | " + std::string(72, ' ') + "^\n"},
        {"[\"" + Repeat("x", 3'000'000) + "\" 1,\"" + Repeat("名", 300) + "\"]",
         "in(1,3000005-3000006): error 101: Found '1' when expecting ','.\n  1 | ..." + Repeat("x", 44) +
             "\" 1,\"" + Repeat("名", 9) + " ...\n    | " + std::string(49, ' ') + "^\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.error);
        m_Folder.Write("in", each.input);
        for (const char* const command : {"json format in", "json eval '$' in"}) {
            const Result result = Run(command);
            EXPECT_EQ(result.m_ExitCode, 1);
            EXPECT_EQ(result.m_Out, "");
            EXPECT_EQ(result.m_Error, each.error);
        }
    }
}

TEST_F(QvJson, MalformedBytesAreToldAndReplaced) {
    m_Folder.Write("in", "[\"a\",\n\"\xC3(\",\"\xFF\"]");
    const Result result = Run("json format --compact in");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_EQ(result.m_Out, "[\"a\",\"\uFFFD(\",\"\uFFFD\"]\n");
    EXPECT_EQ(result.m_Error,
              "in(2,2-3): warning: Malformed UTF-8.\n  2 | \"\uFFFD(\",\"\uFFFD\"]\n    |  ^\n");
}

TEST_F(QvJson, Utf16IsToldByItsMark) {
    const std::string little("\xFF\xFE[\0\"\0\xE4\0\x3D\xD8\x00\xDE\"\0]\0", 16);
    std::string big = little;
    for (std::size_t i = 0; i < big.size(); i += 2)
        std::swap(big[i], big[i + 1]);
    for (const std::string& text : {little, big}) {
        m_Folder.Write("in", text);
        EXPECT_EQ(Do("json format --compact in"), "[\"ä😀\"]\n");
        EXPECT_EQ(Run("json eval '$' --lines in").m_Error,
                  "qv: error: in is UTF-16; lines are read in UTF-8\n");
    }
    m_Folder.Write("in", little + "x");
    EXPECT_EQ(Run("json check in").m_Error,
              "in(1,7-8): error 101: Found '\uFFFD' when expecting 'End of File'.\n"
              "  1 | [\"ä😀\"]\uFFFD\n    |        ^\n");
}

TEST_F(QvJson, CheckGoesOnAndCounts) {
    m_Folder.Write("good", Repeat("[", 1000) + Repeat("]", 1000));
    m_Folder.Write("bad,1", "{\"a\"}");
    EXPECT_EQ(Do("json check good -", "cat good |"), "No findings in 2 files\n");

    const Result people = Run("json check bad,1 nowhere . good");
    EXPECT_EQ(people.m_ExitCode, 3);
    EXPECT_EQ(people.m_Out, "1 finding in 2 files\n");
    EXPECT_THAT(people.m_Error, StartsWith("bad,1(1,5-6): error 101: Found '}' when expecting ':'.\n"));
    EXPECT_THAT(people.m_Error, HasSubstr("qv: error: nowhere cannot be opened: No such file or directory\n"
                                          "qv: error: . cannot be read: Is a directory\n"));

    const Result json = Run("json check --json bad,1 nowhere good");
    EXPECT_EQ(json.m_ExitCode, 3);
    EXPECT_EQ(json.m_Out, "{\"file\":\"bad,1\",\"findings\":1}\n{\"file\":\"nowhere\",\"findings\":null}\n"
                          "{\"file\":\"good\",\"findings\":0}\n");
    EXPECT_EQ(
        json.m_Error,
        "{\"source\":\"bad,1\",\"line\":1,\"column\":5,\"end_column\":6,\"kind\":\"error\",\"number\":101,"
        "\"text\":\"Found '}' when expecting ':'.\"}\n"
        "{\"source\":\"nowhere\",\"line\":null,\"column\":null,\"end_column\":null,\"kind\":\"error\","
        "\"number\":0,\"text\":\"cannot be opened: No such file or directory\"}\n");

    const Result csv = Run("json check --csv bad,1 nowhere");
    EXPECT_EQ(csv.m_ExitCode, 3);
    EXPECT_EQ(csv.m_Error, "source,line,column,end_column,kind,number,text,input\n"
                           "\"bad,1\",1,5,6,error,101,Found '}' when expecting ':'.,\n"
                           "nowhere,,,,error,0,cannot be opened: No such file or directory,\n");
}

TEST_F(QvJson, ExitCodesAreTheSameUnderEveryFormat) {
    m_Folder.Write("in", "{\"a\":1}");
    m_Folder.Write("bad", "{\"a\":}");
    const std::vector<const char*> argumentsOf[] = {
        {"format in", "eval a in", "eval -- -a in", "print 'a + 1'"},
        {"format bad", "check bad", "eval z in", "eval 'a +' in", "eval '(-\"x\")' in", "eval a bad",
         "eval a bad --lines", "print 'a b'", "print 1234567", "eval format in"},
        {"check", "eval", "eval -a in", "print", "format in --compact --pretty", "", "format in in",
         "sort in"},
        {"format nowhere", "format .", "check nowhere", "eval a nowhere", "eval a --lines nowhere"}};
    for (int exitCode = 0; exitCode <= 3; ++exitCode) {
        for (const char* const arguments : argumentsOf[exitCode]) {
            for (const char* const format : {"", "--json ", "--csv "})
                EXPECT_EQ(Run(std::string(format) + "json " + arguments).m_ExitCode, exitCode)
                    << format << arguments;
        }
    }
}

TEST_F(QvJson, EvalPrintsWhatItFinds) {
    EXPECT_EQ(Eval("a.b[-1]", R"({"a":{"b":[1,{"y":"\u00e4","x":0.1}]}})"), "{\"x\":0.1,\"y\":\"ä\"}\n");
    EXPECT_EQ(Eval("a * 1000001", "{\"a\":1234567}"), "1234568234567\n");
    EXPECT_EQ(Eval("a - a", "{\"a\":1e999}"), "null\n");
    EXPECT_EQ(Eval("format", R"({"format":"json"})"), "\"json\"\n");

    m_Folder.Write("in", "{\"n\":1,\"s\":\"x\"}");
    const Result result = Run("json eval 'n <\n s' in");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_EQ(result.m_Out, "");
    EXPECT_EQ(
        result.m_Error,
        "expression(1,3-4): error 905: The values either side of the operator '<' must be of the same type.\n"
        "  1 | n <\n    |   ^\n  evaluated against in\n");
    EXPECT_EQ(
        Run("json eval 'n & \"x' in").m_Error,
        "expression(1,7-7): error 104: Missing '\"' before 'End of File'.\n  1 | n & \"x\n    |       ^\n");
    EXPECT_EQ(Eval("`a\"b`", "{\"a\\\"b\":1}"), "1\n"); // no string is open here
}

TEST_F(QvJson, EvalOfLinesGoesOn) {
    m_Folder.Write("in", "\xEF\xBB\xBF{\"v\":1}\r\n{\"v\":}\n \t\r\n{\"v\":\"x\"}\n{\"w\":2}\n" +
                             std::string("\0\n", 2) + "{\"v\":3}");
    const Result result = Run("json eval 'v + 1' --lines in");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_EQ(result.m_Out, "2\n4\n");
    EXPECT_EQ(result.m_Error,
              "in(2,6-7): error 101: Found '}' when expecting 'JSON Property Value'.\n  2 | {\"v\":}\n    |  "
              "    ^\n"
              "expression(1,3-4): error 901: The left side of the '+' operator must evaluate to a number.\n"
              "  1 | v + 1\n    |   ^\n  evaluated against in, line 4\n"
              "in(6,1-1): error 101: Found 'End of File' when expecting 'JSON Property Value'.\n  6 | ␀\n    "
              "| ^\n");
    EXPECT_THAT(Run("json eval 'v + 1' --lines --json in").m_Error, HasSubstr("\"input\":\"in, line 4\"}\n"));
}

TEST_F(QvJson, EvalOfLinesStreams) {
    // Each result must be there before the program gets the next line.
    Do("json eval v --lines <fifo >results & exec 3>fifo; for v in 1 2 3; do echo \"{\\\"v\\\":$v}\" >&3; "
       "until [ \"$(tail -n 1 results)\" = $v ]; do sleep 0.01; done; done; exec 3>&-; wait; true",
       "mkfifo fifo; : >results;");
    EXPECT_EQ(m_Folder.Read("results"), "1\n2\n3\n");

    // Many lines, and one that is too long for the memory that the program may have.
    const Result result =
        Run("json eval v --lines", MemoryLimit + "(yes '{\"v\":7}' | head -n 100000; "
                                                 "yes 1 | tr -d '\\n' | head -c 70000000; echo; "
                                                 "echo '{\"v\":8}') |");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_TRUE(result.m_Out == Repeat("7\n", 100'000) + "8\n");
    EXPECT_EQ(result.m_Error, "standard input(100001,1-1): error: The line is longer than 64 MiB.\n"
                              "  100001 |\n         | ^\n");
}

TEST_F(QvJson, PrintTellsWhichDigitsAreLost) {
    const Result result = Run("json print '1234567 + `a\"1`[0] * 1e3 <> 1e999 - 0.1234567'");
    EXPECT_EQ(result.m_ExitCode, 1);
    EXPECT_EQ(result.m_Out, "1.23457e+06 + `a\"1`[0] * 1000 != inf - 0.123457\n");
    for (const char* const place : {"(1,1-8)", "(1,29-34)", "(1,37-46)"})
        EXPECT_THAT(result.m_Error,
                    HasSubstr("expression" + std::string(place) +
                              ": warning: The canonical form has six digits of this number.\n"));
    EXPECT_EQ(std::count(result.m_Error.begin(), result.m_Error.end(), '\n'), 9);
    EXPECT_EQ(Do("json print '\"\\ud800\"'"), "\"\\uD800\"\n");
}
