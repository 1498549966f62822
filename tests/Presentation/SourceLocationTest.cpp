#include <QVLib/Parsing/ErrorLocation.h>
#include <QVLib/Presentation/CodeAnnotations.h>
#include <QVLib/Presentation/NavigationTarget.h>
#include <QVLib/Presentation/SourceLocation.h>
#include <QVLib/Tags/TagName.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <gtest/gtest.h>

namespace {

std::string Format(const CSourceLocation& location) {
    qvstring text = "replaced";
    location.FormatLocation(text);
    return text;
}

TEST(SourceLocation, ParsesToOneCanonicalForm) {
    const auto expectForm = [](const qvstring& line, const qvstring& formatted, unsigned int expectedColon) {
        CSourceLocation location(qvstring("before?x=y"));
        unsigned int colon = 0;
        EXPECT_TRUE(location.ParseLocation(line, colon)) << line;
        EXPECT_EQ(colon, expectedColon) << line;
        EXPECT_EQ(Format(location), formatted) << line;
        EXPECT_TRUE(location.ParseLocation(formatted, colon));
        EXPECT_EQ(Format(location), formatted) << line;
    };
    constexpr unsigned int none = CSourceLocation::NoColon;
    for (const char* const same :
         {"a(3)", "a(3,1-9)", "a(3,1-4,2)", "a(5", "a(b)(5)", "ab:c", "m?a=b=c", "m?x?y"})
        expectForm(same, same, none);
    const std::pair<const char*, const char*> locations[] = {{"a(3,1)", "a(3)"},
                                                             {"a(3,1-3,1)", "a(3)"},
                                                             {"a(3,7-7)", "a(3,7)"},
                                                             {"m?b=2&a=1&c", "m?a=1&b=2&c"},
                                                             {"m?a=1&a=2(7)", "m?a=1(7)"},
                                                             {"a()", "a(0)"},
                                                             {"a(x)", "a(0)"},
                                                             {"a(1,2-3,4-5)", "a(1,2-3,4)"}};
    for (const auto& [text, formatted] : locations)
        expectForm(text, formatted, none);
    expectForm("a(99999999999,5000000000-4294967296)", "a(4294967295,4294967295)", none);
    expectForm("Plant/Logic(12,5-9): error 906: x", "Plant/Logic(12,5-9)", 19);
    expectForm("C:\\src\\a.txt(3,4): warning 7: x", "C:\\src\\a.txt(3,4)", 17);
    expectForm("name: some text", "name", 4);
    expectForm("abc: <x>", "abc", 3);
    expectForm("ab:c:d", "ab:c", 4);
    const std::pair<const char*, unsigned int> others[] = {
        {"a5)", none}, {"", 0}, {"a<b: x", 3}, {"abc|: x", 4}};
    for (const auto& [line, expectedColon] : others) {
        unsigned int colon = 0;
        EXPECT_FALSE(CSourceLocation().ParseLocation(line, colon)) << line;
        EXPECT_EQ(colon, expectedColon) << line;
    }
}

TEST(SourceLocation, TellsItsParts) {
    CSourceLocation location;
    unsigned int colon;
    ASSERT_TRUE(location.ParseLocation("Plant/Tank1?File=a.txt&Flag(12,5-9): x", colon));
    EXPECT_EQ(location.GetLocationText(), "Plant/Tank1?File=a.txt&Flag(12,5-9)");
    EXPECT_EQ(location.GetModuleNameWithQuery(), "Plant/Tank1?File=a.txt&Flag");
    EXPECT_EQ(location.GetModuleName(), "Plant/Tank1");
    EXPECT_EQ(location.GetQuery(), "File=a.txt&Flag");
    ASSERT_NE(location.GetQueryValue("File"), nullptr);
    EXPECT_EQ(*location.GetQueryValue("File"), "a.txt");
    EXPECT_EQ(*location.GetQueryValue("Flag"), "");
    EXPECT_EQ(location.GetQueryValue("file"), nullptr);
    ASSERT_TRUE(location.ParseLocation(location.GetLocationText(), colon)) << "an old part of its own";
    EXPECT_EQ(Format(location), "Plant/Tank1?File=a.txt&Flag(12,5-9)");

    const CSourceLocation file("A", "b&c.txt");
    EXPECT_EQ(file.GetModuleNameWithQuery(), "A?File=b&c.txt");
    EXPECT_EQ(*file.GetQueryValue("File"), "b&c.txt");
    const CSourceLocation tag(CTagName(qvstring("A.B?C")));
    EXPECT_EQ(tag.GetModuleName(), "A.B?C");
    EXPECT_EQ(tag.GetQuery(), "");
    EXPECT_FALSE(tag.HasPosition());
    EXPECT_EQ(tag.GetEndColumn(), 1u);

    const std::string text = "ab\ncdef";
    TextInputQVString input(text, "M?q=1");
    CQVTextLocation places[8];
    int codePoint;
    for (CQVTextLocation& place : places)
        input.ReadCodePointWithLocation(codePoint, place);
    location.Init(CErrorLocationTextRange(places[1], places[5]));
    EXPECT_EQ(Format(location), "M?q=1(1,2-2,3)");
    location.Init(places[4]);
    EXPECT_EQ(Format(location), "M?q=1(2,2)");
    location.Init(CQVTextLocation(), CQVTextLocation());
    EXPECT_EQ(Format(location), "(1)");
}

TEST(SourceLocation, MovesBackIntoAnEmbeddedText) {
    const struct {
        const char* position;
        int lines;
        int columns;
        const char* moved;
    } rows[] = {
        {"a(10,8-12)", 2, 4, "a(8,4-8)"},          {"a(10,8-11,3)", 2, 4, "a(8,4-9,3)"},
        {"a(10,8-12)", -2, -4, "a(12,12-16)"},     {"a(1,2-3)", 100, 100, "a(0,0)"},
        {"a(4294967295)", -5, 0, "a(4294967295)"}, {"a", 1, 1, "a"},
    };
    for (const auto& row : rows) {
        CSourceLocation location;
        unsigned int colon;
        ASSERT_TRUE(location.ParseLocation(row.position, colon));
        location.AdjustPosition(row.lines, row.columns);
        EXPECT_EQ(Format(location), row.moved) << row.position;
    }
}

TEST(CodeAnnotations, FilesLinesUnderTheirSource) {
    const struct {
        COutputLog::LogType type;
        const char* line;
        const char* module; // null: no annotation
        const char* annotation;
    } rows[] = {
        {COutputLog::Error, "Plant/Logic(12,5-9): error 906: Escaped.", "Plant/Logic",
         "12,5-12,9 1 906 ' Escaped.'"},
        {COutputLog::Error, "C:\\src\\a.txt(3,4): warning 7: x", "C:\\src\\a.txt", "3,4-3,4 0 7 ' x'"},
        {COutputLog::Error, "name: some text", "name", "1,1-1,1 1 0 ' some text'"},
        {COutputLog::Warning, "name: some text", "NAME", "1,1-1,1 0 0 ' some text'"},
        {COutputLog::Information, "name:", "Name", "1,1-1,1 2 0 ''"},
        {COutputLog::Error, "name: Error 5: x", "name", "1,1-1,1 2 5 ' x'"},
        {COutputLog::Error, "name: fatal error 5: x", "name", "1,1-1,1 2 0 ' x'"},
        {COutputLog::Error, "name:error12:a:b", "name", "1,1-1,1 1 12 'a:b'"},
        {COutputLog::Error, "name: 77 : x", "name", "1,1-1,1 2 77 ' x'"},
        {COutputLog::Error, "name?q=1(9999999999): error 9999999999: x", "name?q=1",
         "2147483647,1-2147483647,1 1 2147483647 ' x'"},
        {COutputLog::Error, "no colon here", nullptr, ""},
        {COutputLog::Error, "a<b>: error 1: x", nullptr, ""},
        {COutputLog::Error, "", nullptr, ""},
    };
    for (const auto& row : rows) {
        CCodeAnnotations annotations;
        EXPECT_EQ(
            annotations.AppendMessage(row.type, 4711, row.line, static_cast<unsigned int>(strlen(row.line))),
            row.module != nullptr)
            << row.line;
        EXPECT_EQ(annotations.GetErrorCount() + annotations.GetWarningCount(), 0u);
        if (row.module == nullptr) {
            EXPECT_TRUE(annotations.GetAnnotations().empty());
            continue;
        }
        const auto* const list = annotations.FindFile(row.module);
        ASSERT_NE(list, nullptr) << row.line;
        ASSERT_EQ(list->size(), 1u);
        const auto& a = list->front();
        EXPECT_EQ(std::to_string(a.m_StartLine) + "," + std::to_string(a.m_StartColumn) + "-" +
                      std::to_string(a.m_EndLine) + "," + std::to_string(a.m_EndColumn) + " " +
                      std::to_string(a.m_Severity) + " " + std::to_string(a.m_Number) + " '" + a.m_Message +
                      "'",
                  row.annotation);
    }
}

TEST(CodeAnnotations, KeepsOrderAndCountsWhatIsAdded) {
    CCodeAnnotations annotations;
    annotations.PrintError("abc(1): error 1: first");
    annotations.PrintError("ABC(2): error 2: second");
    for (const int severity : {0, 1, 1, 2}) {
        CCodeAnnotations::Annotation annotation;
        annotation.m_Severity = severity;
        annotations.AddError("other", annotation);
    }
    CCodeAnnotations copy(annotations);
    copy = annotations;
    annotations.Clear();
    EXPECT_EQ(annotations.GetErrorCount(), 0u);
    EXPECT_EQ(annotations.FindFile("abc"), nullptr);
    ASSERT_NE(copy.FindFile("aBc"), nullptr);
    EXPECT_EQ(copy.FindFile("aBc")->front().m_Message, " first");
    EXPECT_EQ(copy.FindFile("aBc")->back().m_Number, 2);
    EXPECT_EQ(copy.FindFile("other")->size(), 4u);
    EXPECT_EQ(copy.GetErrorCount(), 2u);
    EXPECT_EQ(copy.GetWarningCount(), 1u);
}

class Target : public CNavigationTarget {
public:
    void NavigateToLocation(const CSourceLocation& location) override { m_Places += Format(location) + ";"; }

    std::string m_Places;
};

TEST(NavigationTarget, ShowsLinksAndTags) {
    Target target;
    target.NavigateToLink("Plant/Logic(3,4)");
    target.NavigateToLink("a<b(3)");
    target.NavigateToLink("a|b: x");
    target.NavigateToLink("");
    target.NavigateToTag(CTagName(qvstring("Plant.Pump1?Alarm")));
    EXPECT_EQ(target.m_Places, "Plant/Logic(3,4);Plant.Pump1?Alarm;");
}

} // namespace
