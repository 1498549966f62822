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

TEST(SecuritySettingsFilesTest, StartUpTakesTheFirstFileThatOpens) {
    using namespace std::string_literals;
    enum TextFile { Missing, Refused, There };
    const std::string good = BinaryOf("cat: World=Force, ZoneD=Full;");
    const char* const cat = "cat: World=Force, ZoneD=Full;\n";
    const std::string reading = "Reading 'F/user-rights.conf'...\n";
    const std::string readingBinary = "Reading 'F/Rights.qvusr'...\nLoading file 'F/Rights.qvusr'...\n";
    const std::string refused =
        "... could not open file 'F/user-rights.conf'.\n... error 13: Permission denied\n" + readingBinary;
    const std::string cats = "User rights:\ncat: World=Force, ZoneD=Full\n";
    const std::string absent = "... could not open file.\nCreate default user rights.\n";
    const std::string invalid = "... invalid file format\nCreate default user rights.\n";
    const std::string saving = "Saving file 'F/user-rights.conf'...\n";
    const std::string leaving = "'F/user-rights.conf' is left as it is.\n";
    CSecuritySettings current;
    current.InitialiseForCurrentUser();
    const std::string forCurrentUser = Text(current);
    const struct {
        TextFile text;
        std::string content, binary; // an empty binary file is not written
        bool forServer, addGuest;
        std::string entries, log;
    } cases[] = {
        {There, "ann: World=Write; # not saved again", good, true, true, "ann: World=Write;\n",
         reading + "F/user-rights.conf(1,19-20): error 101: Found '#' when expecting 'User ID'.\n"},
        {There, "ann: World=Ful; bob: World=Write;", "", false, false, "bob: World=Write;\n",
         reading + "F/user-rights.conf(1,12-15): error 101: Found 'Ful' when expecting 'User Right'.\n"},
        {There, "", good, true, false, "", reading},
        {Refused, "ann: World=Write;", good, true, true, cat, refused + cats + leaving},
        {Refused, "ann: World=Write;", "", false, true, forCurrentUser, refused + absent + leaving},
        {Missing, "", good, true, true, cat, readingBinary + cats + saving},
        {Missing, "", "\1\0\0\0\0\0"s, true, true, "", readingBinary + "... no changes found\n" + saving},
        {Missing, "", "\2\0\0\0\0\0"s, true, false, "root: World=Full;\n*: World=Full;\n",
         readingBinary + invalid + saving},
        {Missing, "", "", true, true, "root: World=Full;\n*: World=Full;\nGuest: World=Full;\n",
         readingBinary + absent + saving},
        {Missing, "", "", false, true, forCurrentUser, readingBinary + absent + saving},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.log);
        const TemporaryFolder folder;
        if (c.text != Missing)
            folder.Write(TextName, c.content);
        if (!c.binary.empty())
            folder.Write(BinaryName, c.binary);
        FaultSystemCalls system;
        if (c.text == Refused)
            system.FailAt(SystemCall::Open, 1, EACCES);
        CSecuritySettings settings;
        COutputLogToString printed;
        settings.InitialiseSecuritySettings(folder.GetFilePath(), c.forServer, c.addGuest, &printed);
        EXPECT_EQ(WithoutFolder(printed.GetString(), folder), "InitializeSecuritySettings: F\n" + c.log);
        EXPECT_EQ(Text(settings), c.entries);
        EXPECT_EQ(folder.Read(TextName), c.text == Missing ? c.entries : c.content);
        EXPECT_EQ(folder.Exists(BinaryName), !c.binary.empty());
    }
    const TemporaryFolder folder;
    folder.Write(BinaryName, good.substr(0, good.size() - 1));
    CSecuritySettings settings;
    COutputLogNull null;
    EXPECT_THROW(settings.InitialiseSecuritySettings(folder.GetFilePath(), true, true, &null),
                 CBinaryInput::EOFException);
    EXPECT_FALSE(folder.Exists(TextName));
    EXPECT_TRUE(settings.m_Users.empty());
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
    }
    // The same through the binary form.
    folder.Write("b", BinaryOf("ann: World=Write;"));
    for (const bool first : {true, false}) {
        bool changed = !first;
        COutputLogToString log;
        EXPECT_TRUE(settings.LoadBinaryFile(binary, changed, &log));
        EXPECT_EQ(changed, first);
        EXPECT_EQ(Text(settings), "ann: World=Write;\n");
    }
    settings.Clear();
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

TEST(SecuritySettingsFilesTest, WhatStopsTheReadingIsLogged) {
    using namespace std::string_literals;
    const TemporaryFolder folder;
    folder.Write("t", "\xFF\xFEJ\0\xF6\0:\0W\0o\0r\0l\0d\0=\0F\0u\0l\0l\0;\0\0\0b\0"s);
    CSecuritySettings zero;
    COutputLogToString zeroLog;
    EXPECT_TRUE(zero.ParseTextFile(folder.File("t"), &zeroLog));
    EXPECT_EQ(Text(zero), "Jö: World=Full;\n");
    EXPECT_EQ(zeroLog.GetString(), "... the text ends at a zero byte, what follows is not read\n");

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
