#include <QVPlatform/Module.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextLocation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

namespace {

__attribute__((format(printf, 3, 4))) void PrefixedPrint(COutputLog& log, const std::string& prefix,
                                                         const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log.PrefixedPrintInfoVA(prefix.data(), static_cast<unsigned int>(prefix.size()), format, arguments);
    va_end(arguments);
}

TEST(OutputLog, LinesKeepKindNumberAndEveryByte) {
    COutputLogToRawList log;
    EXPECT_EQ(log.GetFirstLogEntry(), nullptr);
    log.Print("%u records", 7U);
    log.PrintError("%s", "disk full");
    EXPECT_TRUE(log.AppendMessage(COutputLog::Warning, 103, "abcdef", 3));
    PrefixedPrint(log, "plc1: ", "%c", 'x');

    const std::list<COutputLogToRawList::LogEntry>& entries = log.GetLogEntries();
    std::vector<std::tuple<COutputLog::LogType, int, std::string>> found;
    for (const COutputLogToRawList::LogEntry& entry : entries)
        found.emplace_back(entry.type, entry.number, entry.text);
    EXPECT_THAT(found, testing::ElementsAre(std::tuple(COutputLog::Information, 0, "7 records"),
                                            std::tuple(COutputLog::Error, 0, "disk full"),
                                            std::tuple(COutputLog::Warning, 103, "abc"),
                                            std::tuple(COutputLog::Information, 0, "plc1: x")));
    EXPECT_EQ(log.GetFirstLogEntry(), &entries.front());
    log.Clear();
    EXPECT_TRUE(entries.empty());
}

TEST(OutputLog, LinesOfAnyLength) {
    // Around the size up to which a line is formatted without the heap, with and without a prefix.
    for (unsigned int length : {0U, 1U, 1022U, 1023U, 1024U, 1025U, 5000U, 3000000U}) {
        SCOPED_TRACE(length);
        const std::string body(length, 'b');
        COutputLogToString log;
        log.Print("%s", body.c_str());
        PrefixedPrint(log, "prefix ", "%s", body.c_str());
        PrefixedPrint(log, body, "%s", "end");
        EXPECT_EQ(log.GetString(), body + "\nprefix " + body + "\n" + body + "end\n");
    }
}

TEST(Module, FindsTheLanguageOrElseEnglish) {
    static constexpr unsigned char Bytes[] = "EGGEg";
    static constexpr CQVModule::DataResource Resources[] = {
        {7, CQVLocale::English, {1, Bytes}},     {7, CQVLocale::German, {1, Bytes + 1}},
        {8, CQVLocale::German, {1, Bytes + 2}},  {8, CQVLocale::English, {1, Bytes + 3}},
        {10, CQVLocale::German, {1, Bytes + 4}},
    };
    static constexpr CQVModule Module(Resources, 5);
    const struct {
        unsigned int language, id;
        const unsigned char* found;
    } cases[] = {{CQVLocale::English, 7, Bytes},
                 {CQVLocale::German, 7, Bytes + 1},
                 {CQVLocale::English, 8, Bytes + 3},
                 {CQVLocale::German, 8, Bytes + 2},
                 {1036, 7, Bytes},
                 {CQVLocale::German, 10, Bytes + 4},
                 {CQVLocale::English, 10, nullptr},
                 {CQVLocale::English, 9, nullptr}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.id << " in " << c.language);
        QV_DATA data;
        EXPECT_EQ(Module.LoadResourceDataFile(CQVLocale(c.language), c.id, data), c.found != nullptr);
        EXPECT_EQ(data.data, c.found);
    }
}

TEST(TextLocation, CountsLinesAndColumns) {
    CQVTextLocation location;
    for (const int codePoint : {97, 9, 13, 10, 10, 0x1F600})
        location.IncrementByCodePoint(codePoint);
    EXPECT_EQ(location.GetLine(), 3U);
    EXPECT_EQ(location.GetColumn(), 2U);
    EXPECT_EQ(location.GetPosition(), 1U);
}

TEST(TextLocation, CopiesKeepTheNameAliveAfterItsSource) {
    CQVTextLocation kept;
    {
        CQVTextLocation source;
        source.SetSourceName(new CQVTextLocationSourceName("rights.conf"));
        source.SetSourceName(source.GetSourceNameRef()); // the last reference replaced by itself
        source.SetLineAndColumn(4, 9);
        const CQVTextLocation copy(source);
        const CQVTextLocation moved(std::move(source));
        kept = copy;
        kept = moved;
    }
    ASSERT_NE(kept.GetSourceNameRef(), nullptr);
    EXPECT_EQ(kept.GetSourceNameRef()->GetName(), "rights.conf");
    kept.Reset();
    EXPECT_EQ(kept.GetLine(), 1U);
    EXPECT_NE(kept.GetSourceNameRef(), nullptr);
}

} // namespace
