#include "ParsingTesting.h"
#include "TextStreams/TextInputModel.h"
#include <QVLib/Parsing/ParseContext.h>
#include <QVLib/Parsing/TextInputFromParseTokens.h>
#include <QVLib/Parsing/TextInputFromStringToken.h>
#include <QVLib/Parsing/TextReportParseContext.h>
#include <gtest/gtest.h>
#include <list>

namespace {

// "a@1:2 " for each code point.
std::string PrintRest(CTextInput& input) {
    std::string printed;
    int codePoint;
    for (CQVTextLocation place; input.ReadCodePointWithLocation(codePoint, place);) {
        qv_append_codepoint_to_qvstring(codePoint == 10 ? '~' : codePoint, printed);
        printed += "@" + std::to_string(place.GetLine()) + ":" + std::to_string(place.GetColumn()) + " ";
    }
    return printed;
}

std::list<CParseToken> Tokens(const std::string& text) {
    TextInputQVString input(text, "n");
    COutputLogNull log;
    CParseContext context(&input, &log);
    std::list<CParseToken> tokens;
    do
        context.GetNextToken(tokens.emplace_back());
    while (tokens.back().Type() != TokenEndOfFile);
    tokens.pop_back();
    return tokens;
}

TEST(TextInputFromParseTokens, ReadsPiecesWhereTheyStand) {
    const std::list<CParseToken> tokens = Tokens("ab äyz\n  12");
    TextInputFromParseTokens input;
    EXPECT_EQ(input.Tell(), -1);
    int codePoint = 7;
    EXPECT_FALSE(input.ReadNextCodePoint(codePoint));
    EXPECT_EQ(codePoint, 0);
    for (const CParseToken& token : tokens) {
        if (token.Type() != TokenWhitespace)
            input.AddToken(token);
    }
    EXPECT_EQ(PrintRest(input), "a@1:1 b@1:2 ä@1:4 y@1:5 z@1:6 ~@1:7 1@2:3 2@2:4 ");
    EXPECT_EQ(input.Tell(), -1);

    const CParseToken& word = *std::next(tokens.begin(), 2);
    TextInputFromParseTokens parts;
    parts.AddToken(word, 2, 1);
    parts.AddToken(word, 0, 0);
    parts.AddToken(word, 9, 1);
    parts.AddToken(word, 3, 4'000'000'000);
    EXPECT_EQ(PrintRest(parts), "y@1:5 z@1:6 ");
    parts.Seek(1'000);
    EXPECT_EQ(parts.Tell(), -1);
    parts.AddToken(tokens.front());
    EXPECT_EQ(PrintRest(parts), "y@1:5 z@1:6 a@1:1 b@1:2 ") << "reading begins again";

    const auto at = [](const char* text, unsigned int line) {
        CQVTextLocation place;
        place.SetLineAndColumn(line, 1);
        return CParseToken(text, CErrorLocationTextRange(place, place));
    };
    const CParseToken made[] = {at("a\r", 2), at("\n", 4), at("b", 6)};
    TextInputFromParseTokens newline;
    for (const CParseToken& token : made)
        newline.AddToken(token);
    EXPECT_EQ(PrintRest(newline), "a@2:1 ~@2:2 b@6:1 ") << "one newline across two tokens";
}

// The tokens of a text read like the text itself, but for the offset at the end, -1.
TEST(TextInputFromParseTokens, RandomOperationsAgreeWithTheText) {
    std::mt19937 random(3);
    for (unsigned int seed = 0; seed < 300; seed++) {
        SCOPED_TRACE(seed);
        Decoded text{{}, {0}, -1};
        const std::list<CParseToken> tokens = Tokens(MakeRandomText(seed, 20, false));
        TextInputFromParseTokens input;
        for (const CParseToken& token : tokens) {
            input.AddToken(token);
            const char* const end = token.Text().data() + token.Text().size();
            for (const char* next = token.Text().data(); next != end;) {
                const char* const start = next;
                text.m_CodePoints.push_back(qv_codepoint_from_qvchar(next, end));
                text.m_Ends.push_back(text.m_Ends.back() + (next - start));
            }
        }
        text.m_Ends.back() = -1;
        CompareWithModel(input, TextInputModel(text), random);
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST(TextInputFromStringToken, ReadsContentAtItsPlace) {
    const auto expectContent = [](const char* literal, const char* content) {
        CQVTextLocation begin;
        begin.SetLineAndColumn(3, 5);
        const CParseToken token(literal, CErrorLocationTextRange(begin, begin));
        CTextInputFromStringToken input(token);
        CTextInput::Position start;
        input.SavePosition(start);
        EXPECT_EQ(PrintRest(input), content) << literal;
        EXPECT_EQ(PrintRest(input), "") << "the end stays the end: " << literal;
        input.RestorePosition(start);
        EXPECT_EQ(PrintRest(input), content) << literal;
    };
    const std::pair<const char*, const char*> rows[] = {
        {"'ab'", "a@3:6 b@3:7 "},
        {"\"ab\"", "a@3:6 b@3:7 "},
        {"string#'a'", "a@3:13 "},
        {"WString#\"a\"", "a@3:14 "},
        {"STRING#\"a\"", "S@3:5 T@3:6 R@3:7 I@3:8 N@3:9 G@3:10 #@3:11 \"@3:12 a@3:13 "},
        {"%'a$N'", "a@3:7 $@3:8 N@3:9 "},
        {"%\"$41\"", "$@3:7 4@3:8 1@3:9 "},
        {"%xa", "a@3:7 "},
        {"%", "%@3:5 "},
        {"abc", "a@3:5 b@3:6 c@3:7 "},
        {"'abc", "a@3:6 b@3:7 c@3:8 "},
        {"'a$$b'", "a@3:6 $@3:7 b@3:9 "},
        {"'$'$\"x'", "'@3:6 \"@3:8 x@3:10 "},
        {"'$N$l$Tx'", "~@3:6 ~@3:8 \t@3:10 x@3:12 "},
        {"'$R$Nx'", "~@3:6 x@3:10 "},
        {"'$Rx'", "~@3:6 x@3:8 "},
        {"'$41x'", "A@3:6 x@3:9 "},
        {"\"$20aCx\"", "€@3:6 x@3:11 "},
        {"'a\nb'", "a@3:6 ~@3:7 b@4:1 "},
    };
    for (const auto& [literal, content] : rows)
        expectContent(literal, content);
    for (const char* const empty : {"'", "\"", "''", ""})
        expectContent(empty, "");
    for (const char* const malformed : {"'a$qb'", "'a$'", "'a$4'", "'a$4x'", "\"a$123x\""})
        expectContent(malformed, "a@3:6 ");
}

std::string ReportTokens(CTextInput& input) {
    COutputLogToString log;
    TextReportParseContext context(&input, &log);
    std::string printed;
    CParseToken token;
    while (context.GetReportToken(token) != TokenEndOfFile) {
        printed += PrintToken(token);
        token = CParseToken();
    }
    EXPECT_EQ(log.GetString(), "");
    return printed;
}

TEST(TextReportParseContext, SplitsTemplates) {
    const std::pair<const char*, const char*> rows[] = {
        {"Total: <?sum?> items<!-- note -->",
         "200:Total: @1:1-1:8 202:<?sum?>@1:8-1:15 200: items@1:15-1:21 201:<!-- note -->@1:21-1:34 "},
        {"", ""},
        {"<!---->x", "201:<!---->@1:1-1:8 200:x@1:8-1:9 "},
        {"<!--->-->", "201:<!--->-->@1:1-1:10 "},
        {"<?\?>", "202:<?\?>@1:1-1:5 "},
        {"<?a?>=b", "202:<?a?>@1:1-1:6 200:=b@1:6-1:8 "},
        {"<!--a-->=b", "201:<!--a-->@1:1-1:9 200:=b@1:9-1:11 "},
        {"<?a?\?>", "202:<?a?\?>@1:1-1:7 "},
        {"<!--a--->b", "201:<!--a--->@1:1-1:10 200:b@1:10-1:11 "},
        {"<?a", "202:<?a@1:1-1:4! "},
        {"x<!--a", "200:x@1:1-1:2 201:<!--a@1:2-1:7! "},
        {"<!--<?a?>-->", "201:<!--<?a?>-->@1:1-1:13 "},
        // "<?" is a mark within code too, and its "?" not half of another
        {"<?a<?>b?>", "202:<?a<?>b?>@1:1-1:10 "},
        {"<?<!--?>x-->", "202:<?<!--?>@1:1-1:9 200:x-->@1:9-1:13 "},
        {"a<!-b<!c<d-->?>", "200:a<!-b<!c<d-->?>@1:1-1:16 "},
        {"<<?x?><<!--y-->", "200:<@1:1-1:2 202:<?x?>@1:2-1:7 200:<@1:7-1:8 201:<!--y-->@1:8-1:16 "},
        {"a\n<?b\nc?>\nd", "200:a$@1:1-2:1 202:<?b$c?>@2:1-3:4 200:$d@3:4-4:2 "},
    };
    for (const auto& [text, tokens] : rows) {
        for (const unsigned int readSize : ReadSizes) {
            ChunkedInput input(text, readSize);
            EXPECT_EQ(ReportTokens(input), tokens) << text;
        }
    }
}

} // namespace
