#include "ParsingTesting.h"
#include <QVLib/Parsing/ParseContextEx.h>
#include <gtest/gtest.h>

namespace {

constexpr int AllOptions = ParseExSingleQuoteStrings | ParseExDoubleQuoteStrings | ParseExExtendedIdentifiers;

// A context over a text that is read in the given way, with its messages in a string.
class TestContext : public ParseContextEx {
public:
    explicit TestContext(const qvstring& text, unsigned int readSize = 4096, int options = AllOptions)
        : ParseContextEx(&m_Input, &m_Messages, options), m_Input(text, readSize) {}

    using CParseContext::m_bSkipEndOfLine;

    std::string Next() {
        CParseToken token;
        GetNextToken(token);
        return PrintToken(token);
    }
    std::string NextSkipWS() {
        CParseToken token;
        const int type = GetNextTokenSkipWS(token);
        EXPECT_EQ(type, token.Type());
        return PrintToken(token);
    }
    // Every token up to the end.
    std::string NextEx() {
        std::string printed;
        CParseToken token;
        while (GetNextTokenEx(token) != TokenEndOfFile) {
            printed += PrintToken(token);
            CParseToken fresh;
            std::swap(token, fresh);
        }
        return printed;
    }

    COutputLogToString m_Messages;

private:
    ChunkedInput m_Input;
};

TEST(ParseContextTest, BlanksAndLineEndsAreSkippedAsAsked) {
    for (const unsigned int readSize : ReadSizes) {
        SCOPED_TRACE(readSize);
        TestContext context(" \t\r\n\n \u00A0\u2028a \n b", readSize);
        EXPECT_EQ(context.NextSkipWS(), "6:a@4:1-4:2 ");
        context.m_bSkipEndOfLine = false;
        EXPECT_EQ(context.NextSkipWS(), "2:$@4:3-5:1 ");
        EXPECT_EQ(context.NextSkipWS(), "6:b@5:2-5:3 ");
        EXPECT_EQ(context.NextSkipWS(), "1:@5:3-5:3 ");
    }
}

TEST(ParseContextTest, TokensComeBackLastInFirstOut) {
    TestContext context("a+b");
    CParseToken tokens[4];
    for (CParseToken& token : tokens)
        context.GetNextToken(token);
    ASSERT_EQ(tokens[3].Type(), TokenEndOfFile);
    context.ReplaceToken(std::move(tokens[0]));
    context.ReplaceToken(std::move(tokens[3]));
    context.ReplaceToken(std::move(tokens[2]));
    EXPECT_EQ(tokens[2].Type(), TokenUnknown);
    EXPECT_EQ(context.PeekNextCharacter(), -1);
    EXPECT_EQ(context.Next(), "6:b@1:3-1:4 ");
    EXPECT_EQ(context.Next(), "6:a@1:1-1:2 ");
    EXPECT_EQ(context.Next(), "1:@1:4-1:4 ");
}

TEST(ParseContextTest, StatesRestoreTextAndPushedBackTokensAnyNumberOfTimes) {
    for (const unsigned int readSize : ReadSizes) {
        TestContext context("a b c d", readSize);
        CParseToken token;
        context.GetNextToken(token);
        context.ReplaceToken(std::move(token));
        CParseContext::ParseState state;
        context.SaveState(state);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(context.NextSkipWS(), "6:a@1:1-1:2 ");
            EXPECT_EQ(context.NextSkipWS(), "6:b@1:3-1:4 ");
            context.ReplaceToken(CParseToken("left over", CErrorLocationTextRange()));
            context.RestoreState(state);
        }
        EXPECT_EQ(context.NextSkipWS(), "6:a@1:1-1:2 ");
        EXPECT_EQ(context.Next(), "3: @1:2-1:3 ");
    }
}

TEST(ParseContextTest, SkippingStopsBeforeTheTokenOrAtTheEnd) {
    TestContext context("a 'b;\n c; d, e");
    context.SkipToBeforeToken(';');
    EXPECT_EQ(context.Next(), "59:;@1:5-1:6 ");
    context.SkipToBeforeToken(',', ';');
    EXPECT_EQ(context.Next(), "59:;@2:3-2:4 ");
    context.SkipToBeforeToken(';', ',');
    EXPECT_EQ(context.Next(), "44:,@2:6-2:7 ");
    context.SkipToBeforeToken(';');
    EXPECT_EQ(context.Next(), "1:@2:9-2:9 ");
}

TEST(ParseContextTest, KeywordsAreFoundWithoutRegardToCase) {
    static constexpr TokenKeyword Table[] = {{"BAUD", 300}, {"data", 301}, {"Data_Bits", 302}, {"STOP", 303}};
    const CErrorLocationTextRange nowhere;
    TestContext context("");
    const auto translate = [&](const char* text) {
        CParseToken token(text, nowhere);
        context.TranslateIdentifierToken(token);
        return token.Type();
    };
    EXPECT_EQ(translate("baud"), TokenIdentifier);
    for (unsigned int count = 0; count <= 4; ++count) {
        context.SetIdentifierTokens(Table, count);
        for (unsigned int i = 0; i < 4; ++i)
            EXPECT_EQ(translate(Table[i].m_pKeyword), i < count ? Table[i].m_TokenType : TokenIdentifier);
    }
    for (const char* text : {"BAUD", "Baud", "baud"})
        EXPECT_EQ(translate(text), 300);
    for (const char* text : {"", "bau", "bauds", "zz"})
        EXPECT_EQ(translate(text), TokenIdentifier);
}

TEST(ParseContextTest, MessagesNameTheTokenAndItsPlace) {
    TestContext context("first\n  x");
    CParseToken token;
    context.GetNextTokenSkipWS(token);
    for (int i = 0; i < 2; ++i) {
        context.GetNextTokenSkipWS(token);
        context.LogUnexpectedTokenError(token, ";");
        context.LogUnexpectedTokenError(token, ";", ")");
        context.LogUnexpectedTokenError(token, ";", ")", "name");
        context.LogMissingTokenBeforeError(token, "=");
        context.LogMissingTokenAfterError(token, "=");
        context.LogSyntaxError(token);
        context.LogUnexpectedExtraTokenError(token);
        context.LogMissingKeywordBeforeError(token, "IN");
        context.LogExpectedOneOfError(token, "a, b");
        context.SetErrorsAsWarnings(true);
    }
    const std::string found[] = {"n(2,3-4): error 10", "x", "x", "n(2,4-4): warning 10", "End of File", ""};
    std::string expected;
    for (const std::string* text = found; text != std::end(found); text += 3) {
        expected += text[0] + "1: Found '" + text[1] + "' when expecting ';'.\n";
        expected += text[0] + "2: Found '" + text[1] + "' when expecting ';' or ')'.\n";
        expected += text[0] + "3: Found '" + text[1] + "' when expecting ';', ')' or 'name'.\n";
        expected += text[0] + "4: Missing '=' before '" + text[1] + "'.\n";
        expected += text[0] + "5: Missing '=' after '" + text[1] + "'.\n";
        expected += text[0] + "6: Syntax error near '" + text[1] + "'.\n";
        expected += text[0] + "7: Unexpected extra token '" + text[2] + "' ignored.\n";
        expected += text[0] + "8: Missing keyword 'IN' before '" + text[1] + "'.\n";
        expected += text[0] + "9: Unexpected token '" + text[1] + "', expected one of: a, b.\n";
    }
    EXPECT_EQ(context.m_Messages.GetString(), expected);
    EXPECT_EQ(context.GetErrorCount(), 9u);
    EXPECT_EQ(context.GetWarningCount(), 9u);
}

TEST(ParseContextTest, PeekingTellsWhatTheNextTokenStartsWith) {
    TestContext context(" \n+a\r\nb");
    EXPECT_EQ(context.PeekNextCharacter(), ' ');
    EXPECT_EQ(context.PeekNextCharacterSkipWS(), '+');
    context.TakeNextCharacter();
    EXPECT_EQ(context.Next(), "6:a@2:2-2:3 ");
    // A newline must be read.
    EXPECT_EQ(context.PeekNextCharacter(), -1);
    EXPECT_EQ(context.PeekNextCharacterSkipWS(), -1);
    EXPECT_EQ(context.NextSkipWS(), "6:b@3:1-3:2 ");
    EXPECT_EQ(context.PeekNextCharacterSkipWS(), -1);
    EXPECT_EQ(TestContext("+", 0).PeekNextCharacter(), -1);
}

TEST(ParseContextExTest, StringsAndIdentifiersArePutTogether) {
    const struct {
        qvstring text;
        const char* tokens;
        int options = AllOptions;
    } cases[] = {
        {"'it''s' x", "130:'it''s'@1:1-1:8 6:x@1:9-1:10 "},
        {"\"a'b\"\"\"'c\"'", "131:\"a'b\"\"\"@1:1-1:8 130:'c\"'@1:8-1:12 "},
        {"''", "130:''@1:1-1:3 "},
        {"'''", "130:'''@1:1-1:4! "},
        {"'' '", "130:''@1:1-1:3 130:'@1:4-1:5! "},
        {"'a\r\n b' c", "130:'a$ b'@1:1-2:4 6:c@2:5-2:6 "},
        {"'abc", "130:'abc@1:1-1:5! "},
        {qvstring("'a\0b'", 5), "130:'a@1:1-1:3! "},
        {"'a<>\u2028é'", "130:'a<>$é'@1:1-2:3 "},
        {"pump_1a+", "6:pump_1a@1:1-1:8 43:+@1:8-1:9 "},
        {"pump _1 _", "6:pump@1:1-1:5 95:_@1:6-1:7 7:1@1:7-1:8 95:_@1:9-1:10 "},
        {"é_1é", "6:é_1é@1:1-1:5 "},
        {"'a' \"b\" c_d",
         "39:'@1:1-1:2 6:a@1:2-1:3 39:'@1:3-1:4 131:\"b\"@1:5-1:8 6:c@1:9-1:10 95:_@1:10-1:11 "
         "6:d@1:11-1:12 ",
         ParseExDoubleQuoteStrings},
    };
    for (const auto& c : cases) {
        for (const unsigned int readSize : ReadSizes) {
            SCOPED_TRACE(c.text + " by " + std::to_string(readSize));
            TestContext context(c.text, readSize, c.options);
            EXPECT_EQ(context.NextEx(), c.tokens);
        }
    }
    EXPECT_STREQ(ParseContextEx::GetTokenExName(130), "SingleQuoteString");
    EXPECT_STREQ(ParseContextEx::GetTokenExName(131), "DoubleQuoteString");
    EXPECT_STREQ(ParseContextEx::GetTokenExName('='), "Equal");
}

TEST(ParseContextExTest, RandomTextsGiveTheSameTokensHoweverTheyAreRead) {
    for (unsigned int seed = 1; seed <= 400; ++seed) {
        const qvstring text = MakeRandomText(seed, 60, seed % 2 == 0);
        const std::string expected = TestContext(text, 0).NextEx();
        for (const unsigned int readSize : ReadSizes)
            ASSERT_EQ(TestContext(text, readSize).NextEx(), expected)
                << "seed " << seed << " by " << readSize;
    }
}

TEST(ParseContextExTest, StringContentIsUnquoted) {
    const std::pair<const char*, const char*> cases[] = {
        {"'it''s'", "it's"}, {"''", ""},   {"'abc", "abc"},     {"''''", "'"}, {"'a'b", "a"}, {"", ""},
        {"plain", "plain"},  {"'''", "'"}, {"'\"é\"'", "\"é\""}};
    for (const auto& [text, expected] : cases) {
        qvstring content = "old";
        ParseContextEx::SingleQuoteStringContentFromToken(CParseToken(text, CErrorLocationTextRange()),
                                                          content);
        EXPECT_EQ(content, expected) << text;
    }
}

// A million of anything costs a million steps and no stack.
TEST(ParseContextTest, LongTextsStayLinear) {
    constexpr unsigned int Count = 1000000;
    for (const char* piece : {"(", "a", " ", "''", "\n", "é", "."}) {
        qvstring text;
        for (unsigned int i = 0; i < Count; ++i)
            text += piece;
        for (const unsigned int readSize : {0u, 7u, 4096u}) {
            TestContext context(text, readSize);
            CParseToken token;
            while (context.GetNextTokenEx(token) != TokenEndOfFile) {
            }
            EXPECT_EQ(context.GetErrorCount(), 0u);
        }
    }
}

} // namespace
