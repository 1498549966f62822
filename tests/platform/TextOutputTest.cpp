#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutputFile.h>
#include <QVPlatform/TextOutputToOutputLog.h>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <support/FaultSystemCalls.h>
#include <support/TemporaryFolder.h>

namespace {

TEST(TextOutput, LineEnds) {
    const struct {
        TextLineTermination termination;
        const char* text;
    } cases[] = {{TextLineTerminationCR, "a\rb\rc\r\rd"},
                 {TextLineTerminationLF, "a\nb\nc\n\nd"},
                 {TextLineTerminationCRLF, "a\r\nb\r\nc\r\n\r\nd"}};
    for (const auto& c : cases) {
        CTextOutputString output;
        output.SetLineTermination(c.termination);
        output.PrintLine("%c", 'a');
        output.WriteString("b\nc");
        output.PrintChars(2, '\n');
        output.PrintChar('d');
        EXPECT_EQ(output.GetString(), c.text);
    }
    CTextOutputString plain; // line feeds are the default; the raw sink changes nothing
    plain.PrintLine();
    plain.SetLineTermination(TextLineTerminationCRLF);
    plain.WriteCodePoint('\n');
    EXPECT_EQ(plain.GetString(), "\n\n");
}

TEST(TextOutput, IndentsLinesThatHaveCharacters) {
    CTextOutputString output;
    output.AdjustIndent(-5);
    output.PrintLine("{");
    output.AdjustIndent(2);
    output.WriteString("one\n\ntwo\n");
    output.AdjustIndent(-1); // behind the line end and still in time
    output.Print("%s", "three");
    output.WriteCodePoints(2, 0x20AC);
    output.PrintLine();
    output.AdjustIndent(-3);
    output.PrintBase64("}", 1);
    EXPECT_STREQ(output.GetCStr(), "{\n    one\n\n    two\n  three\xE2\x82\xAC\xE2\x82\xAC\nfQ==");
    output.AdjustIndent(1);
    output.Clear();
    output.WritePlainText("", 0);
    output.PrintLine();
    output.WritePlainText("x\xE2\x82\xAC", 4);
    EXPECT_EQ(output.GetString(), "\n  x\xE2\x82\xAC");
}

TEST(TextOutput, Base64) {
    const std::string cases[][2] = {{"", ""},
                                    {"f", "Zg=="},
                                    {"fo", "Zm8="},
                                    {"foo", "Zm9v"},
                                    {"foob", "Zm9vYg=="},
                                    {"foobar", "Zm9vYmFy"},
                                    {"\xFB\xFF\xFE", "+//+"},
                                    {std::string(300, '\0'), std::string(400, 'A')}};
    for (const auto& [bytes, text] : cases) { // RFC 4648, chapter 10
        CTextOutputString output;
        output.PrintBase64(bytes.data(), static_cast<unsigned int>(bytes.size()));
        EXPECT_EQ(output.GetString(), text);
    }
}

// An output with its own idea of a line, as a log or a mark-up writer has.
class MarkedLines : public CTextOutput {
public:
    bool WriteCodePoint(int codePoint) override {
        m_Text.push_back(static_cast<char>(codePoint));
        return true;
    }
    void WriteNewLine() override { m_Text += "<end>"; }
    void IndentNewLine() override { Print(">"); }
    std::string m_Text;
};

TEST(TextOutput, DerivedLineEndsAndIndentationServeEveryHelper) {
    MarkedLines output;
    output.AdjustIndent(1);
    output.Print("a\n");
    output.PrintChar('\n');
    output.WriteString("b");
    output.WriteCodePoints(1, 10);
    output.PrintLine("c");
    EXPECT_EQ(output.m_Text, ">a<end><end>>b<end>>c<end>");
}

// ---- Runs ----

// Writes down what came as a run, "[text]", and what as a code point, "<20AC>".
class Diary : public CTextOutput {
public:
    Diary() { TakeRuns<Diary, &Diary::WriteRun>(); }
    bool WriteCodePoint(int codePoint) override {
        char text[16];
        snprintf(text, sizeof text, "<%X>", static_cast<unsigned int>(codePoint));
        m_Text += text;
        return true;
    }
    bool WriteRun(const char* text, unsigned int length) {
        if (m_bTakesRuns)
            m_Text += "[" + std::string(text, length) + "]";
        return m_bTakesRuns;
    }
    bool m_bTakesRuns = true;
    std::string m_Text;
};

class DerivedDiary : public Diary {};

TEST(TextOutput, RunsAreWhatNeedsNothingDoneToIt) {
    const char* const cases[][3] = {
        {"a\n\nb\n", "[a]<A><A>[b]<A>", "<61><A><A><62><A>"},
        {"a\r\t\x7F", "[a\r\t\x7F]", "<61><D><9><7F>"},
        {"\xC3\xA9\xF0\x9F\x98\x80", "[\xC3\xA9\xF0\x9F\x98\x80]", "<E9><1F600>"},
        {"\xED\xA0\x80", "[\xED\xA0\x80]", "<D800>"},
        {"\xEF\xBF\xBDx", "[\xEF\xBF\xBDx]", "<FFFD><78>"},
        {"a\xFF\xE2\x82z\xEF\xBF", "[a]<FFFD><FFFD>[z]<FFFD>", "<61><FFFD><FFFD><7A><FFFD>"},
    };
    for (const auto& [text, runs, codePoints] : cases) {
        Diary taking, refusing;
        DerivedDiary derived; // might have its own WriteCodePoint(), which a run would pass by
        refusing.m_bTakesRuns = false;
        for (Diary* diary : {&taking, &refusing, static_cast<Diary*>(&derived)})
            diary->WriteString(text);
        EXPECT_EQ(taking.m_Text, runs);
        EXPECT_EQ(refusing.m_Text, codePoints);
        EXPECT_EQ(derived.m_Text, codePoints);
    }
}

// The same object without runs.
class OneByOne : public CTextOutputString {};

TEST(TextOutput, RunsAndCodePointsGiveTheSameText) {
    std::mt19937 random(4);
    for (int round = 0; round < 5000; ++round) {
        CTextOutputString runs;
        OneByOne codePoints;
        CTextOutput* const outputs[] = {&runs, &codePoints};
        const auto termination = static_cast<TextLineTermination>(random() % 3);
        for (int step = 0; step < 6; ++step) {
            std::string text(random() % 30, ' ');
            for (char& byte : text)
                byte = "ab\n\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD\xED"[random() % 17];
            const auto count = static_cast<unsigned int>(random() % 200);
            const int indent = static_cast<int>(random() % 80) - 40;
            const int copied = "x\n"[random() % 2];
            for (CTextOutput* const output : outputs) {
                output->SetLineTermination(termination);
                output->AdjustIndent(indent);
                output->WriteString(text);
                output->WriteCodePoints(count, copied);
                output->PrintBase64(text.data(), static_cast<unsigned int>(text.size()));
            }
        }
        ASSERT_EQ(runs.GetString(), codePoints.GetString());
    }
}

// ---- Encodings ----

class Bytes : public CTextOutputWithEncoding {
public:
    bool WriteBytes(const unsigned char* data, unsigned int count) override {
        if (m_Refused > 0) {
            --m_Refused;
            return false;
        }
        m_Bytes.append(data, data + count);
        return true;
    }
    int m_Refused = 0; // so many calls fail
    std::string m_Bytes;
};

class BytesByRun : public Bytes {
public:
    BytesByRun() { TakeRuns<BytesByRun, &BytesByRun::WriteRun>(); }
};

// Where a virtual operation stands in its class's table, the two destructors first.
template<class Operation>
ptrdiff_t SlotOf(Operation operation) {
    ptrdiff_t place;
    memcpy(&place, &operation, sizeof place);
    return place / static_cast<ptrdiff_t>(sizeof(void*));
}

TEST(TextOutput, VirtualOperationsStandWhereOtherProgramsExpectThem) {
    EXPECT_EQ(SlotOf(&CTextOutput::WriteCodePoint), 2);
    EXPECT_EQ(SlotOf(&CTextOutput::WriteNewLine), 3);
    EXPECT_EQ(SlotOf(&CTextOutput::IndentNewLine), 4);
    EXPECT_EQ(SlotOf(&CTextOutputWithEncoding::WriteBytes), 5);
}

TEST(TextOutputWithEncoding, EncodesAndMarks) {
    using namespace std::string_literals;
    const std::string text = "A\xC3\xA9\xF0\x9F\x98\x80\n\xED\xA0\x80";
    const std::string utf16LE = "A\0\xE9\0\x3D\xD8\0\xDE\r\0\n\0\0\xD8"s;
    const std::string utf16BE = "\0A\0\xE9\xD8\x3D\xDE\0\0\r\0\n\xD8\0"s;
    const std::string utf8 = "A\xC3\xA9\xF0\x9F\x98\x80\r\n\xED\xA0\x80";
    const std::string expected[] = {
        utf8, "\xEF\xBB\xBF" + utf8, "\xFF\xFE" + utf16LE, "\xFE\xFF" + utf16BE, utf16LE, utf16BE};
    for (int encoding = 0; encoding <= 5; ++encoding) {
        Bytes codePoints, refused;
        BytesByRun runs, mixed;
        refused.m_Refused = 1;
        for (Bytes* output :
             {&codePoints, &refused, static_cast<Bytes*>(&mixed), static_cast<Bytes*>(&runs)}) {
            output->SetLineTermination(TextLineTerminationCRLF);
            output->SetEncoding(static_cast<TextEncoding>(encoding));
            EXPECT_EQ(output->m_Bytes, ""); // no mark without a character
            const bool bFirst = output != &runs && output->WriteCodePoint('A');
            EXPECT_EQ(bFirst, output == &codePoints || output == &mixed);
            output->WriteString(bFirst ? text.substr(1) : text); // after a refusal the mark is still to come
            EXPECT_EQ(output->m_Bytes, expected[encoding]);
        }
    }
}

// ---- Files ----

TEST(TextOutputFile, WritesTextsOfAnyLength) {
    const TemporaryFolder folder;
    CTextOutputFile file;
    EXPECT_FALSE(file.CloseTextFile()); // nothing was opened
    for (unsigned int length : {0U, 1U, 4095U, 4096U, 4097U, 100000U}) {
        for (const bool bReplace : {false, true}) {
            folder.Write("a.txt", "former");
            ASSERT_TRUE(bReplace ? file.OpenTextFileForReplace(folder.File("a.txt"))
                                 : file.OpenTextFileForWrite(folder.File("a.txt")));
            file.SetEncoding(TextEncodingUTF8WithMark); // each file gets its own
            file.WriteString(std::string(length, 'x'));
            file.WriteCodePoints(length / 2, 'y');
            file.PrintLine("%s", "end");
            EXPECT_EQ(folder.Read("a.txt") == "former", bReplace);
            EXPECT_TRUE(file.CloseTextFile());
            EXPECT_TRUE(file.CloseTextFile());
            EXPECT_FALSE(file.WriteCodePoint('x'));
            EXPECT_EQ(folder.Read("a.txt"),
                      "\xEF\xBB\xBF" + std::string(length, 'x') + std::string(length / 2, 'y') + "end\n");
            EXPECT_THAT(folder.List(), testing::ElementsAre("a.txt"));
        }
    }
    EXPECT_FALSE(file.OpenTextFileForWrite(folder.File("missing/a.txt")));
    EXPECT_EQ(file.GetLastError(), ENOENT);
    EXPECT_FALSE(file.CloseTextFile());
}

TEST(TextOutputFile, AReplacementThatIsNotClosedNeverWins) {
    const TemporaryFolder folder;
    folder.Write("a.txt", "former");
    {
        CTextOutputFile file;
        for (int i = 0; i < 2; ++i) { // given up by the next opening, then by the destructor
            ASSERT_TRUE(file.OpenTextFileForReplace(folder.File("a.txt")));
            file.WriteString(std::string(5000, 'x'));
        }
        EXPECT_THAT(folder.List(), testing::ElementsAre("a.txt", "a.txtTemp"));
    }
    EXPECT_THAT(folder.List(), testing::ElementsAre("a.txt"));
    EXPECT_EQ(folder.Read("a.txt"), "former");
}

TEST(TextOutputFile, AFailureAnywhereLeavesTheOldTextOrTheNewAndIsTold) {
    const std::string text(10000, 'x');
    for (unsigned int n = 0;; ++n) {
        ASSERT_LT(n, 100U);
        const TemporaryFolder folder = TemporaryFolder::InMemory();
        folder.Write("a.txt", "former");
        FaultSystemCalls system;
        if (n == 0)
            system.FailAt(SystemCall::Close, 1, EIO);
        else
            system.FailAt(SystemCall::Changes & ~SystemCall::Erase, n, EIO);
        CTextOutputFile file;
        file.OpenTextFileForReplace(folder.File("a.txt"));
        file.WriteCodePoints(5000, 'x'); // through the buffer
        file.WriteString(text.substr(5000));
        const bool bDone = file.CloseTextFile();
        const bool bFailed = system.GetFaults() > 0;
        system.Heal();
        EXPECT_EQ(bDone, !bFailed) << n;
        EXPECT_EQ(file.GetLastError(), bFailed ? EIO : 0) << n;
        EXPECT_THAT(folder.List(), testing::ElementsAre("a.txt")) << n;
        const std::string found = folder.Read("a.txt");
        EXPECT_TRUE(found == text || (!bDone && found == "former")) << n;
        if (!bFailed)
            break;
    }
}

TEST(TextOutputFile, AReplacementIsAsAccessibleAsItsPredecessor) {
    using std::filesystem::perms;
    for (const perms mode : {perms(0400), perms(0640), perms(0666)}) {
        const TemporaryFolder folder;
        const auto modeOf = [&](const char* name) {
            return std::filesystem::status(folder.File(name).GetPath()).permissions();
        };
        folder.Write("a.txtTemp", "left by somebody");
        std::filesystem::permissions(folder.File("a.txtTemp").GetPath(), perms::all);
        CTextOutputFile file;
        ASSERT_TRUE(file.OpenTextFileForReplace(folder.File("a.txt"), 0600));
        ASSERT_TRUE(file.CloseTextFile());
        EXPECT_EQ(modeOf("a.txt"), perms(0600));
        std::filesystem::permissions(folder.File("a.txt").GetPath(), mode);
        ASSERT_TRUE(file.OpenTextFileForReplace(folder.File("a.txt")));
        EXPECT_EQ(modeOf("a.txtTemp"), perms(0600));
        ASSERT_TRUE(file.CloseTextFile());
        EXPECT_EQ(modeOf("a.txt"), mode);
    }
}

// Only root may give files away; everybody else becomes the owner, and the text is replaced all the same.
TEST(TextOutputFile, AReplacementMayChangeHands) {
    const TemporaryFolder folder;
    const CQVFilePath path = folder.File("a.txt");
    folder.Write("a.txt", "former");
    std::filesystem::permissions(path.GetPath(), std::filesystem::perms(0664));
    const QVSystemCalls& real = qv_real_system();
    if (real.chown(path.GetPathCStr(), 12345, 23456) != 0)
        GTEST_SKIP() << "takes root";
    for (const unsigned int refused : {0u, 1u, 2u}) {
        FaultSystemCalls system;
        if (refused == 1) // the group may be passed on
            system.FailAt(SystemCall::ChangeOwner, 1, EPERM);
        if (refused == 2)
            system.FailFrom(SystemCall::ChangeOwner, 1, EPERM);
        CTextOutputFile file;
        ASSERT_TRUE(file.OpenTextFileForReplace(path));
        ASSERT_TRUE(file.CloseTextFile());
        struct stat status;
        ASSERT_EQ(real.stat(path.GetPathCStr(), &status), 0);
        EXPECT_EQ(status.st_uid, refused == 0 ? 12345u : 0u);
        EXPECT_EQ(status.st_gid, refused < 2 ? 23456u : 0u);
        EXPECT_EQ(status.st_mode & 0777, refused < 2 ? 0664u : 0644u); // the new group may not write
    }
}

TEST(TextOutputFile, ALinkStaysALink) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder.File("real").GetPath());
    std::filesystem::create_symlink("second", folder.File("first").GetPath());
    std::filesystem::create_symlink(folder.File("real/a.txt").GetPath(), folder.File("second").GetPath());
    for (const char* const text : {"new", "replaced"}) { // the link leads nowhere at first
        CTextOutputFile file;
        ASSERT_TRUE(file.OpenTextFileForReplace(folder.File("first")));
        file.WriteString(text);
        ASSERT_TRUE(file.CloseTextFile());
        EXPECT_EQ(folder.Read("real/a.txt"), text);
        EXPECT_TRUE(std::filesystem::is_symlink(folder.File("first").GetPath()));
        EXPECT_THAT(folder.List("real"), testing::ElementsAre("a.txt"));
    }
    std::filesystem::create_symlink("circle", folder.File("circle").GetPath());
    CTextOutputFile file;
    file.OpenTextFileForReplace(folder.File("circle"));
    EXPECT_FALSE(file.CloseTextFile());
    EXPECT_EQ(file.GetLastError(), ELOOP);
}

// ---- Logs ----

TEST(TextOutputToOutputLog, OneLineIsOneMessage) {
    COutputLogToRawList log;
    {
        CTextOutputToOutputLog output(&log);
        output.SetLineTermination(TextLineTerminationCRLF);
        output.PrintLine("a%d", 1);
        output.AdjustIndent(1);
        output.WriteString("b\r\nc\n\n\xE2\x82\xAC");
        EXPECT_EQ(log.GetLogEntries().size(), 4U);
        output.WriteNewLine();
        output.WriteCodePoint('\n'); // the sink itself ends a line, too
        output.WriteString("rest");
        output.WriteCodePoint(0x20AC);
    }
    { CTextOutputToOutputLog empty(&log); }
    std::vector<std::string> lines;
    for (const COutputLogToRawList::LogEntry& entry : log.GetLogEntries()) {
        EXPECT_EQ(entry.type, COutputLog::Information);
        lines.push_back(entry.text);
    }
    EXPECT_THAT(lines,
                testing::ElementsAre("a1", "  b", "  c", "", "  \xE2\x82\xAC", "", "  rest\xE2\x82\xAC"));
}

} // namespace
