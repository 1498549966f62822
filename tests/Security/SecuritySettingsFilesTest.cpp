#include "SecurityTesting.h"
#include "support/FaultSystemCalls.h"
#include "support/TemporaryFolder.h"
#include <QVPlatform/FilePath.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;

constexpr const char* TextName = "user-rights.conf";
constexpr const char* BinaryName = "Rights.qvusr";

std::string BinaryOf(const qvstring& text) {
    CSecuritySettings settings;
    Parse(settings, text);
    return Saved([&](CBinaryOutput& out) { settings.SaveBinary(out); });
}

// Replaces the folder's path, which differs from run to run.
std::string WithoutFolder(std::string text, const TemporaryFolder& folder) {
    const std::string& path = folder.GetPath();
    for (std::size_t at; (at = text.find(path)) != std::string::npos;)
        text.replace(at, path.size(), "F");
    return text;
}

// Every pair of a text file and a binary file, for servers and others, with and without a guest.
TEST(SecuritySettingsFilesTest, StartUpTakesTheFirstFileThatOpens) {
    const std::string broken = "ann: World=Ful; bob: World=Write;";
    const struct {
        const char* text; // null: missing
        int openError;    // the text is there and fails to open
        const char* entries;
        const char* messages;
    } texts[] = {
        {"ann: World=Write; # not saved again", 0, "ann: World=Write;\n",
         "F/user-rights.conf(1,19-20): error 101: Found '#' when expecting 'User ID'.\n"},
        {"", 0, "", ""},
        {broken.c_str(), 0, "bob: World=Write;\n",
         "F/user-rights.conf(1,12-15): error 101: Found 'Ful' when expecting 'User Right'.\n"},
        {"ann: World=Write;", EACCES, nullptr,
         "... could not open file 'F/user-rights.conf'.\n... error 13: Permission denied\n"},
        {nullptr, 0, nullptr, ""},
    };
    const std::string good = BinaryOf("cat: World=Force, ZoneD=Full;");
    const struct {
        const char* content;
        std::size_t length; // 0: missing
        const char* entries;
        const char* messages;
    } binaries[] = {
        {good.data(), good.size(), "cat: World=Force, ZoneD=Full;\n",
         "User rights:\ncat: World=Force, ZoneD=Full\n"},
        {"\1\0\0\0\0\0", 6, "", "... no changes found\n"},
        {"\2\0\0\0\0\0", 6, nullptr, "... invalid file format\nCreate default user rights.\n"},
        {"", 0, nullptr, "... could not open file.\nCreate default user rights.\n"},
        {good.data(), good.size() - 1, nullptr, nullptr}, // throws
    };
    CSecuritySettings current;
    current.InitialiseForCurrentUser();
    const std::string forCurrentUser = Text(current);

    for (const auto& text : texts)
        for (const auto& binary : binaries)
            for (const int kind : {0, 1, 2, 3}) {
                const bool bServer = (kind & 1) != 0;
                const bool bGuest = (kind & 2) != 0;
                SCOPED_TRACE(testing::Message()
                             << (text.text ? text.text : "(missing)") << " | "
                             << (binary.messages ? binary.messages : "cut") << " | " << kind);
                const TemporaryFolder folder = TemporaryFolder::InMemory();
                if (text.text != nullptr)
                    folder.Write(TextName, text.text);
                if (binary.length != 0)
                    folder.Write(BinaryName, {binary.content, binary.length});
                FaultSystemCalls system;
                if (text.openError != 0)
                    system.FailAt(SystemCall::Open, 1, text.openError);
                std::string entries = text.entries != nullptr ? text.entries : "";
                std::string log = "InitializeSecuritySettings: F\n";
                if (text.entries != nullptr)
                    log += "Reading 'F/user-rights.conf'...\n";
                log += text.messages;
                CSecuritySettings settings;
                COutputLogToString printed;
                if (text.entries == nullptr && binary.messages == nullptr) {
                    EXPECT_THROW(
                        settings.InitialiseSecuritySettings(folder.GetFilePath(), bServer, bGuest, &printed),
                        CBinaryInput::EOFException);
                    EXPECT_EQ(folder.Exists(TextName), text.text != nullptr);
                    EXPECT_TRUE(settings.m_Users.empty());
                    continue;
                }
                settings.InitialiseSecuritySettings(folder.GetFilePath(), bServer, bGuest, &printed);
                if (text.entries == nullptr) {
                    log += "Reading 'F/Rights.qvusr'...\nLoading file 'F/Rights.qvusr'...\n";
                    log += binary.messages;
                    log += text.text == nullptr ? "Saving file 'F/user-rights.conf'...\n"
                                                : "'F/user-rights.conf' is left as it is.\n";
                    const std::string guest = bGuest ? "Guest: World=Full;\n" : "";
                    entries = binary.entries != nullptr ? binary.entries
                              : bServer                 ? "root: World=Full;\n*: World=Full;\n" + guest
                                                        : forCurrentUser;
                }
                EXPECT_EQ(WithoutFolder(printed.GetString(), folder), log);
                EXPECT_EQ(Text(settings), entries);
                EXPECT_EQ(folder.Read(TextName), text.text != nullptr ? text.text : entries);
                EXPECT_EQ(folder.Exists(BinaryName), binary.length != 0);
            }
}

TEST(SecuritySettingsFilesTest, ReloadingTakesOverOnlyWhatDiffersAndIsFreeOfErrors) {
    const TemporaryFolder folder;
    const CQVFilePath text = folder.File("t");
    const CQVFilePath binary = folder.File("b");
    CSecuritySettings settings;
    const struct {
        const char* content;
        const char* entries; // null: the answer is false
        bool changed;
        const char* log;
    } steps[] = {
        {"ann: World=Write;bob: World=Force;", "ann: World=Write;\nbob: World=Force;\n", true,
         "User rights:\nann: World=Write\nbob: World=Force\n"},
        {"#edited\nann: World=Write;\nbob: World=Force;", "ann: World=Write;\nbob: World=Force;\n", false,
         "... no changes found\n"},
        {"bob: World=Force;ann: World=Write;", "bob: World=Force;\nann: World=Write;\n", true,
         "User rights:\nbob: World=Force\nann: World=Write\n"},
        {"cat: World=Full; ann: World Write;", nullptr, false,
         "F/t(1,29-34): error 101: Found 'Write' when expecting '='.\n"},
        {"", "", true, "User rights:\n"},
    };
    std::string entries;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.content);
        folder.Write("t", step.content);
        COutputLogToString log;
        bool changed = !step.changed;
        EXPECT_EQ(settings.LoadTextFile(text, changed, &log), step.entries != nullptr);
        EXPECT_EQ(changed, step.changed);
        EXPECT_EQ(WithoutFolder(log.GetString(), folder), std::string("Loading file 'F/t'...\n") + step.log);
        if (step.entries != nullptr)
            entries = step.entries;
        EXPECT_EQ(Text(settings), entries);

        // The same through the binary form, where there is one.
        if (step.entries == nullptr)
            continue;
        CSecuritySettings other;
        Parse(other, changed ? "" : step.entries);
        folder.Write("b", BinaryOf(step.entries));
        COutputLogToString binaryLog;
        EXPECT_TRUE(other.LoadBinaryFile(binary, changed, &binaryLog));
        EXPECT_EQ(changed, step.changed && !entries.empty());
        EXPECT_EQ(Text(other), entries);
    }
    Parse(settings, "kept: World=Full;");
    bool changed = true;
    COutputLogToString log;
    EXPECT_FALSE(settings.LoadTextFile(folder.File("missing"), changed, &log));
    EXPECT_FALSE(changed);
    folder.Write("b", "\3");
    EXPECT_THROW(settings.LoadBinaryFile(binary, changed, &log), CBinaryInput::EOFException);
    EXPECT_EQ(Text(settings), "kept: World=Full;\n");
    EXPECT_THAT(log.GetString(), HasSubstr("... could not open file.\n"));
}

TEST(SecuritySettingsFilesTest, EveryEncodingIsReadAndWhatStopsTheReadingIsLogged) {
    using namespace std::string_literals;
    const TemporaryFolder folder;
    const struct {
        std::string content;
        const char* entries;
    } cases[] = {
        {"\xEF\xBB\xBF#c\r\nJ\xC3\xB6: World=Full;"s, "J\xC3\xB6: World=Full;\n"},
        {"\xFF\xFEJ\0\xF6\0:\0W\0o\0r\0l\0d\0=\0F\0u\0l\0l\0;\0"s, "J\xC3\xB6: World=Full;\n"},
        {"\xFE\xFF\0a\0:\0W\0o\0r\0l\0d\0=\0F\0u\0l\0l\0;"s, "a: World=Full;\n"},
        {"a: World=Full;\n\0b: World=Full;"s, "a: World=Full;\n"},
    };
    for (const auto& c : cases) {
        folder.Write("t", c.content);
        CSecuritySettings settings;
        COutputLogToString log;
        EXPECT_TRUE(settings.ParseTextFile(folder.File("t"), &log));
        EXPECT_EQ(Text(settings), c.entries);
        EXPECT_EQ(log.GetString().find("zero byte") != std::string::npos,
                  c.content.find("\n\0"s) != std::string::npos);
    }

    // A disk that fails in the middle of the text: what was read is not taken for all.
    std::string longText;
    for (int i = 0; i < 1000; ++i)
        longText += "u" + std::to_string(i) + ": World=Write;\n";
    folder.Write("t", longText);
    for (unsigned int n = 1; n <= 2; ++n) {
        FaultSystemCalls system;
        system.FailFrom(SystemCall::Read, n, EIO);
        CSecuritySettings settings;
        COutputLogToString log;
        bool changed = true;
        EXPECT_FALSE(settings.LoadTextFile(folder.File("t"), changed, &log));
        EXPECT_TRUE(settings.m_Users.empty());
        EXPECT_THAT(log.GetString(), HasSubstr("... error 5: "));
    }
}

std::filesystem::perms ModeOf(const CQVFilePath& path) {
    return std::filesystem::status(path.GetPath()).permissions();
}

TEST(SecuritySettingsFilesTest, AnInterruptedSaveLeavesTheOldFileOrTheNewOne) {
    CSecuritySettings before;
    Parse(before, "old: World=Write;");
    CSecuritySettings after;
    Parse(after, "new: World=Full, ZoneA=Write; *: World=Refresh;");
    constexpr auto Mode = static_cast<std::filesystem::perms>(0604);
    const auto save = [](const CSecuritySettings& settings, const CQVFilePath& path, bool bText,
                         COutputLog* log) {
        return bText ? settings.SaveTextFile(path, log) : settings.SaveBinaryFile(path, log);
    };
    for (const bool bText : {true, false})
        for (unsigned int n = 1;; ++n) {
            ASSERT_LT(n, 200U);
            const TemporaryFolder folder = TemporaryFolder::InMemory();
            const CQVFilePath path = folder.File(bText ? TextName : BinaryName);
            COutputLogNull null;
            ASSERT_TRUE(save(before, path, bText, &null));
            EXPECT_EQ(ModeOf(path), std::filesystem::perms(0640));
            std::filesystem::permissions(path.GetPath(), Mode);
            FaultSystemCalls system;
            system.PartFrom(SystemCall::Write | SystemCall::Writev, 1, 7); // dies within the text, too
            system.FailFrom(SystemCall::Changes, n, EIO);
            COutputLogToString log;
            const bool bSaved = save(after, path, bText, &log);
            const bool bFailed = log.GetString().find("error 5") != std::string::npos;
            system.Heal();
            EXPECT_NE(bSaved, bFailed) << n;

            // The next start finds a whole file, and the next save is not in the way of what is left.
            CSecuritySettings found;
            found.InitialiseSecuritySettings(folder.GetFilePath(), true, false, &log);
            EXPECT_TRUE(found == after || (!bSaved && found == before)) << n;
            EXPECT_TRUE(save(after, path, bText, &null));
            EXPECT_EQ(ModeOf(path), Mode) << n;
            if (bSaved)
                break;
        }
}

TEST(SecuritySettingsFilesTest, SavingTellsWhatItCannotDo) {
    const TemporaryFolder folder;
    CSecuritySettings settings;
    settings.AddNewUser("john.doe", 1);
    settings.AddNewUser("bob", 1);
    COutputLogToRawList log;
    EXPECT_TRUE(settings.SaveTextFile(folder.File("t"), &log));
    ASSERT_EQ(log.GetLogEntries().size(), 2U);
    EXPECT_EQ(log.GetLogEntries().back().type, COutputLog::Warning);
    EXPECT_THAT(log.GetLogEntries().back().text, HasSubstr("'john.doe'"));
    EXPECT_EQ(folder.Read("t"), "john.doe: World=Refresh;\nbob: World=Refresh;\n");

    COutputLogToString errors;
    EXPECT_FALSE(settings.SaveTextFile(folder.File("missing/t"), &errors));
    EXPECT_FALSE(settings.SaveBinaryFile(folder.File("missing/b"), &errors));
    EXPECT_EQ(WithoutFolder(errors.GetString(), folder),
              "Saving file 'F/missing/t'...\nError opening file\n"
              "Saving file 'F/missing/b'...\nError opening file\n");
}

} // namespace
