#include <QVLib/Parsing/ErrorCodeAndMessage.h>
#include <QVLib/Parsing/ErrorLog.h>
#include <QVLib/Resources/Messages.h>
#include <gtest/gtest.h>

namespace {

CErrorLocationTextRange TextRange(const char* name, unsigned int line, unsigned int column,
                                  unsigned int endLine, unsigned int endColumn) {
    CQVTextLocation location;
    if (name)
        location.SetSourceName(new CQVTextLocationSourceName(name));
    CErrorLocationTextRange range(location, location);
    range.Begin().SetLineAndColumn(line, column);
    range.End().SetLineAndColumn(endLine, endColumn);
    return range;
}

const CErrorLocationTextRange Range = TextRange("rights.conf", 3, 5, 4, 9);
const ErrorLocationNull Nowhere;

std::string PrintEntries(const COutputLogToRawList& list) {
    std::string printed;
    for (const COutputLogToRawList::LogEntry& entry : list.GetLogEntries())
        printed += std::to_string(entry.type) + "#" + std::to_string(entry.number) + " " + entry.text + "\n";
    return printed;
}

TEST(ErrorLocationTest, RangesKnowTheirLinesAndColumns) {
    EXPECT_FALSE(Range.IsNull());
    EXPECT_TRUE(CErrorLocationTextRange().IsNull());
    for (int line = -1; line < 7; ++line)
        EXPECT_EQ(Range.IsLineInLocation(line), line == 3 || line == 4);

    const CErrorLocationTextRange oneLine = TextRange("x", 2, 3, 2, 6);
    const CErrorLocationTextRange threeLines = TextRange("x", 2, 3, 4, 6);
    const struct {
        const CErrorLocationTextRange& range;
        int line;
        int column;
        bool isInside;
    } cases[] = {
        {oneLine, 2, 2, false},    {oneLine, 2, 3, true},     {oneLine, 2, 6, true},
        {oneLine, 2, 7, false},    {oneLine, 1, 4, false},    {threeLines, 2, 2, false},
        {threeLines, 2, 3, true},  {threeLines, 2, 99, true}, {threeLines, 3, 1, true},
        {threeLines, 3, 99, true}, {threeLines, 4, 1, true},  {threeLines, 4, 6, true},
        {threeLines, 4, 7, false}, {threeLines, 5, 4, false}, {oneLine, 2, -1, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.range.IsLineAndColumnInLocation(c.line, c.column), c.isInside)
            << c.line << "," << c.column;
}

TEST(ErrorLogTest, MessagesAreLocatedNumberedAndCounted) {
    CErrorLogToMessageList log;
    EXPECT_EQ(log.GetFirstMessage(), nullptr);
    log.LogError(Range, g_LibModule, 105, ";", "x");
    log.LogWarning(Range, g_LibModule, 106, "x");
    log.LogInformation(Range, g_LibModule, 113);
    log.LogError(Nowhere, g_LibModule, 106, "x");
    log.LogWarning(ErrorLocationString(""), g_LibModule, 106, "x");
    log.LogInformation(Nowhere, g_LibModule, 113);
    log.LogError(ErrorLocationString("COM1"), g_LibModule, 106, "x");
    log.LogError(TextRange(nullptr, 1, 2, 1, 3), g_LibModule, 1);
    log.LogError(g_LibModule, 106, "x");
    log.LogWarning(g_LibModule, 955, 7);
    log.LogInformation(g_LibModule, 113);
    log.SetErrorsAsWarnings(true);
    log.LogError(Range, g_LibModule, 106, "x");
    log.LogError(g_LibModule, 106, "x");
    EXPECT_EQ(PrintEntries(log.GetMessageList()),
              "2#105 rights.conf(3,5-9): error 105: Missing ';' after 'x'.\n"
              "1#106 rights.conf(3,5-9): warning 106: Syntax error near 'x'.\n"
              "0#113 rights.conf(3,5-9): Read failed:\n"
              "2#106 Error 106: Syntax error near 'x'.\n"
              "1#106 Warning 106: Syntax error near 'x'.\n"
              "0#113  Read failed:\n"
              "2#106 COM1: error 106: Syntax error near 'x'.\n"
              "2#1 (1,2-3): error 1: Resource string with id 1 not found!\n"
              "2#106 Syntax error near 'x'.\n"
              "1#955 Too many gradient stops. The maximum number supported is 7.\n"
              "0#113 Read failed:\n"
              "1#106 rights.conf(3,5-9): warning 106: Syntax error near 'x'.\n"
              "1#106 Syntax error near 'x'.\n");
    EXPECT_EQ(log.GetErrorCount(), 5u);
    EXPECT_EQ(log.GetWarningCount(), 5u);
    EXPECT_EQ(log.GetFirstMessage()->number, 105);

    // What others logged keeps its kind.
    CErrorLogToMessageList other;
    other.SetErrorsAsWarnings(true);
    other.PropagateErrorsFromOutputLog(log.GetMessageList());
    EXPECT_EQ(PrintEntries(other.GetMessageList()), PrintEntries(log.GetMessageList()));
    EXPECT_EQ(other.GetErrorCount(), 5u);
    other.PropagateErrorAndWarningCount(log);
    EXPECT_EQ(other.GetErrorCount(), 10u);
    EXPECT_EQ(other.GetWarningCount(), 10u);
    other.Clear();
    EXPECT_EQ(other.GetFirstMessage(), nullptr);
    EXPECT_EQ(other.GetErrorCount() + other.GetWarningCount(), 0u);
}

TEST(ErrorLogTest, LongLinesAreCutBetweenCharactersAndStillCounted) {
    // Whatever the number of bytes in front, a cut falls into some of these.
    for (unsigned int padding = 0; padding < 3; ++padding) {
        std::string longText(padding, 'x');
        for (int i = 0; i < 800; ++i)
            longText += "€";
        CErrorLogToMessageList log;
        log.LogError(Range, g_LibModule, 106, longText.c_str());
        log.LogWarning(g_LibModule, 106, longText.c_str());
        log.LogError(ErrorLocationString(longText.c_str()), g_LibModule, 106, "x");
        EXPECT_EQ(log.GetErrorCount(), 2u);
        EXPECT_EQ(log.GetWarningCount(), 1u);
        const std::pair<std::string, std::size_t> expected[] = {
            {"rights.conf(3,5-9): error 106: Syntax error near '" + longText, 1023},
            {"Syntax error near '" + longText, 511},
            {longText, 1023}};
        const auto* line = expected;
        for (const COutputLogToRawList::LogEntry& entry : log.GetMessageList().GetLogEntries()) {
            std::size_t length = line->second;
            while ((static_cast<unsigned char>(line->first[length]) & 0xC0) == 0x80)
                --length;
            // What follows a location that was cut may take the one or two bytes that are left.
            EXPECT_EQ(entry.text.substr(0, length), line->first.substr(0, length));
            EXPECT_LE(entry.text.size(), line->second);
            ++line;
        }
    }
}

TEST(ErrorLogTest, TheLocaleChoosesTheLanguageAlsoOfACopy) {
    const CQVLocale german(CQVLocale::German);
    CErrorLogToString log(german);
    log.LogError(Nowhere, g_LibModule, 116);
    CErrorLogToString copy(log);
    copy.LogWarning(g_LibModule, 523);
    EXPECT_EQ(log.GetString(), "Error 116: Cannot connect without first creating a socket.\n");
    EXPECT_EQ(copy.GetString(), log.GetString() + "Dezember\n");
    EXPECT_EQ(std::pair(copy.GetErrorCount(), copy.GetWarningCount()), std::pair(1u, 1u));
    EXPECT_EQ(log.GetWarningCount(), 0u);
    log.ClearErrorLog();
    EXPECT_EQ(log.GetString() + std::to_string(log.GetErrorCount()), "0");

    char buffer[64];
    EXPECT_STREQ(log.GetResourceString(g_LibModule, 106, buffer, sizeof buffer), "Syntax error near '%s'.");
    EXPECT_STREQ(log.GetResourceString(g_LibModule, 7, buffer, sizeof buffer),
                 "Resource string with id 7 not found!");
}

TEST(ErrorLogTest, CopiesWriteWhereTheyShould) {
    COutputLogToString sink;
    CErrorLog plain(&sink);
    plain.SetErrorsAsWarnings(true);
    plain.LogError(g_LibModule, 113);
    CErrorLog plainCopy(plain);
    plainCopy.LogError(g_LibModule, 114);
    EXPECT_EQ(sink.GetString(), "Read failed:\nWrite failed:\n");
    EXPECT_EQ(plainCopy.GetWarningCount(), 2u);

    CErrorLogToNull null;
    null.LogError(g_LibModule, 113);
    const CErrorLogToNull nullCopy(null);
    EXPECT_EQ(std::pair(null.GetErrorCount(), nullCopy.GetErrorCount()), std::pair(1u, 0u));
    EXPECT_NE(nullCopy.GetOutputLog(), null.GetOutputLog());
}

TEST(ErrorCodeAndMessageTest, ResetForgetsTheFailure) {
    ErrorCodeAndMessage error{3, 111, "refused"};
    error.Reset();
    EXPECT_EQ(error.m_Kind + error.m_Code, 0u);
    EXPECT_EQ(error.m_Message, "");
}

} // namespace
