#include "ParsingTesting.h"
#include <gtest/gtest.h>

namespace {

constexpr ParseIdentifierMode Identifiers = ParseIdentifierLettersAndDigits;
constexpr ParseNumericMode Numbers = ParseNumericDigitRun;

std::string PrintTokens(CTextInput& input, ParseIdentifierMode identifierMode = Identifiers,
                        ParseNumericMode numericMode = Numbers) {
    std::string printed;
    CParseToken token;
    do {
        token.Parse(&input, identifierMode, numericMode);
        printed += PrintToken(token);
    } while (token.Type() != TokenEndOfFile);
    const std::string end = PrintToken(token);
    token.Parse(&input, identifierMode, numericMode);
    EXPECT_EQ(PrintToken(token), end) << "behind the end";
    return printed;
}

TEST(ParseTokenTest, TextBecomesTokensWithExactRanges) {
    const struct {
        qvstring text;
        const char* tokens;
        ParseIdentifierMode identifierMode = Identifiers;
        ParseNumericMode numericMode = Numbers;
    } cases[] = {
        {"", "1:@1:1-1:1 "},
        {"a<>b", "6:a@1:1-1:2 10:<>@1:2-1:4 6:b@1:4-1:5 1:@1:5-1:5 "},
        {"a!b!=", "6:a@1:1-1:2 33:!@1:2-1:3 6:b@1:3-1:4 10:!=@1:4-1:6 1:@1:6-1:6 "},
        {"<=>=<", "9:<=@1:1-1:3 8:>=@1:3-1:5 60:<@1:5-1:6 1:@1:6-1:6 "},
        // No tokens of two characters.
        {"==>", "61:=@1:1-1:2 61:=@1:2-1:3 62:>@1:3-1:4 1:@1:4-1:4 "},
        {">!", "62:>@1:1-1:2 33:!@1:2-1:3 1:@1:3-1:3 "},
        {".5", "46:.@1:1-1:2 7:5@1:2-1:3 1:@1:3-1:3 "},
        {"1..2", "7:1@1:1-1:2 4:..@1:2-1:4 7:2@1:4-1:5 1:@1:5-1:5 "},
        {"1....", "7:1@1:1-1:2 5:...@1:2-1:5 46:.@1:5-1:6 1:@1:6-1:6 "},
        {"..", "4:..@1:1-1:3 1:@1:3-1:3 "},
        {"2.5e-3", "7:2@1:1-1:2 46:.@1:2-1:3 7:5@1:3-1:4 6:e@1:4-1:5 45:-@1:5-1:6 7:3@1:6-1:7 1:@1:7-1:7 "},
        {"x1y2", "6:x1y2@1:1-1:5 1:@1:5-1:5 "},
        {"x1yz", "6:x@1:1-1:2 7:1@1:2-1:3 6:yz@1:3-1:5 1:@1:5-1:5 ", ParseIdentifierLettersOnly},
        {"xy1", "6:x@1:1-1:2 6:y@1:2-1:3 7:1@1:3-1:4 1:@1:4-1:4 ", ParseIdentifierSingleLetter},
        {"123", "7:1@1:1-1:2 7:2@1:2-1:3 7:3@1:3-1:4 1:@1:4-1:4 ", Identifiers, ParseNumericSingleDigit},
        {"a_b", "6:a@1:1-1:2 95:_@1:2-1:3 6:b@1:3-1:4 1:@1:4-1:4 "},
        // Letters of any script; a foreign digit goes on but never starts.
        {"éa\u0663b€", "6:éa\u0663b@1:1-1:5 0:€@1:5-1:6 1:@1:6-1:6 "},
        {"aé\u0663", "6:aé@1:1-1:3 0:\u0663@1:3-1:4 1:@1:4-1:4 ", ParseIdentifierLettersOnly},
        {"1\u0663", "7:1@1:1-1:2 0:\u0663@1:2-1:3 1:@1:3-1:3 "},
        {"\x01\x7F", "0:\x01@1:1-1:2 0:\x7F@1:2-1:3 1:@1:3-1:3 "},
        {" \t\n x", "3: \t@1:1-1:3 2:$@1:3-2:1 3: @2:1-2:2 6:x@2:2-2:3 1:@2:3-2:3 "},
        {" \u00A0 \r\n\u0085\r", "3: \u00A0 @1:1-1:4 2:$@1:4-2:1 2:$@2:1-3:1 2:$@3:1-4:1 1:@4:1-4:1 "},
        // A zero is the end.
        {qvstring("a\0b", 3), "6:a@1:1-1:2 1:@1:2-1:2 "},
    };
    for (const auto& c : cases) {
        for (const unsigned int readSize : ReadSizes) {
            SCOPED_TRACE(c.text + " by " + std::to_string(readSize));
            ChunkedInput input(c.text, readSize);
            EXPECT_EQ(PrintTokens(input, c.identifierMode, c.numericMode), c.tokens);
        }
    }
}

// The end of a run is where the stopping character says that it stands, which need not be where the run
// leads.
TEST(ParseTokenTest, CharactersThatWerePushedBackBringTheirPlaces) {
    ChunkedInput input("c", 16);
    CQVTextLocation location;
    for (const auto& [codePoint, column] : {std::pair('+', 90u), {'b', 21u}, {'a', 20u}, {'\r', 10u}}) {
        location.SetLineAndColumn(7, column);
        input.ReplaceCodePoint(codePoint, location);
    }
    EXPECT_EQ(PrintTokens(input), "3:\r@7:10-7:20 6:ab@7:20-7:90 43:+@7:90-7:91 6:c@1:1-1:2 1:@1:2-1:2 ");
}

// How texts are cut into tokens whatever the input is the matter of the test of ParseContextEx.
TEST(ParseTokenTest, TokensFollowOneAnotherWithoutAGap) {
    for (unsigned int seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE(seed);
        const qvstring text = MakeRandomText(seed, 60, seed % 2 == 0);
        qvstring allText;
        ChunkedInput(text, 4096).ReadAllInput(allText);

        ChunkedInput input(text, 7);
        qvstring joined;
        CParseToken token;
        CQVTextLocation end;
        for (token.Parse(&input, Identifiers, Numbers); token.Type() != TokenEndOfFile;
             token.Parse(&input, Identifiers, Numbers)) {
            const CQVTextLocation& begin = token.Location().GetBegin();
            EXPECT_EQ(std::pair(begin.GetLine(), begin.GetColumn()),
                      std::pair(end.GetLine(), end.GetColumn()));
            end = token.Location().GetEnd();
            joined += token.Text();
        }
        EXPECT_EQ(joined, allText.substr(0, allText.find('\0')));
    }
}

TEST(ParseTokenTest, AsciiIsClassifiedAsThePlatformDoes) {
    for (int codePoint = 1; codePoint < 0x80; ++codePoint) {
        const UnicodeCharacter character(codePoint);
        for (const unsigned int readSize : {0, 1}) {
            const qvstring text(1, static_cast<char>(codePoint));
            ChunkedInput input(text, readSize);
            CParseToken token;
            token.Parse(&input, Identifiers, Numbers);
            const bool isNewline = codePoint == 10 || codePoint == 13;
            EXPECT_EQ(token.Type() == TokenWhitespace, character.IsWhitespace() && !isNewline) << codePoint;
            EXPECT_EQ(token.Type() == TokenNumeric, character.IsASCIIDigit()) << codePoint;
            EXPECT_EQ(token.Type() == TokenIdentifier, character.IsLetter()) << codePoint;
        }
    }
}

TEST(ParseTokenTest, TypesHaveNames) {
    std::string names;
    for (int type = -1; type < 200; ++type)
        if (const char* const name = CParseToken::GetTokenName(type))
            names += std::string(names.empty() ? "" : " ") + name;
        else if (!names.ends_with("\n"))
            names += "\n";
    EXPECT_EQ(
        names,
        "\n ???? EOF End of line Whitespace Range Elipsis Identifier Numeric GreaterEqual LessEqual NotEqual"
        "\n Exclamation DoubleQuote Hash Dollar Percent Ampersand SingleQuote OpenParenthesis"
        " CloseParenthesis Asterisk Plus Comma Minus FullStop ForwardSlash"
        "\n Colon SemiColon LessThan Equal GreaterThan Question At"
        "\n OpenBracket BackSlash CloseBracket Circumflex Underscore GraveAccent"
        "\n OpenBrace VerticalBar CloseBrace Tilda\n");
}

TEST(ParseTokenTest, TextsCompare) {
    const CErrorLocationTextRange nowhere;
    for (const char* exponent : {"e", "E12", "e007"})
        EXPECT_TRUE(CParseToken(exponent, nowhere).IsNumberExponent()) << exponent;
    for (const char* other : {"", "x", "e1a", "E+1", "x3", "e\u0663"})
        EXPECT_FALSE(CParseToken(other, nowhere).IsNumberExponent()) << other;

    const CParseToken baud(qvstring("bAUD"), nowhere);
    EXPECT_EQ(baud.Type(), TokenIdentifier);
    EXPECT_TRUE(baud.EqualIdentifier("Baud"));
    EXPECT_FALSE(baud.EqualIdentifier("Baud1"));
    EXPECT_TRUE(baud.EqualIdentifierCaseSensitive("bAUD"));
    EXPECT_FALSE(baud.EqualIdentifierCaseSensitive("BAUD"));
    // '_' stands before the letters, as they are lower case; bytes beyond ASCII stand behind them.
    for (const char* above : {"C", "baudx", "bé"})
        EXPECT_LT(baud.CompareIdentifier(above), 0) << above;
    for (const char* below : {"", "A", "bau", "ba_d"})
        EXPECT_GT(baud.CompareIdentifier(below), 0) << below;
}

TEST(ParseTokenTest, TokensGrowMoveAndStayUnterminated) {
    ChunkedInput input("ab+\ncd", 16);
    CParseToken token;
    CParseToken next;
    token.Parse(&input, Identifiers, Numbers);
    token.SetNotTerminated();
    for (int i = 0; i < 2; ++i) {
        next.Parse(&input, Identifiers, Numbers);
        token.Append(next);
    }
    token.AppendCodePoint(0x20AC);
    EXPECT_EQ(PrintToken(token), "6:ab+$€@1:1-2:1! ");

    CParseToken moved(std::move(token));
    EXPECT_EQ(token.Type(), TokenUnknown);
    next = std::move(moved);
    EXPECT_EQ(PrintToken(next), "6:ab+$€@1:1-2:1! ");
    next.Clear();
    EXPECT_EQ(PrintToken(next), "0:@1:1-2:1! ");
    next.Parse(&input, Identifiers, Numbers);
    EXPECT_EQ(PrintToken(next), "6:cd@2:1-2:3! ");
}

} // namespace
