#include "../BinaryStreams/BinaryStreamsTesting.h"
#include "support/BinaryBytes.h"
#include <QVLib/Tags/StringFromAlarmState.h>
#include <QVLib/Tags/TagName.h>
#include <QVLib/Tags/TagPropertyEnumeration.h>
#include <QVPlatform/Module.h>
#include <QVPlatform/TextOutput.h>
#include <gtest/gtest.h>
#include <random>

namespace {

TEST(TagName, RelativeAndBack) {
    const struct {
        const char* base;
        const char* absolute;
        const char* relative;
    } rows[] = {
        {"A.B.C", "A.B.D", ".D"},       {"A.B.C", "A.X.Y", "..X.Y"},
        {"A.B.C", "Z.Y", "...Z.Y"},     {"A.B.C", "A.B.C", ".C"},
        {"A.B.C", "A.B", "..B"},        {"A.B.C", "A", "...A"},
        {"A.B.C", "a.B.D", "...a.B.D"}, {"A", "B", ".B"},
        {"A.B.C", "A.B.C.D", ".C.D"},   {"A.B.C", "AB.C.D", "...AB.C.D"},
        {"A.B.C", "A.BB.C", "..BB.C"},  {"A.B?P", "A.B?Q", ".B?Q"},
    };
    for (const auto& row : rows) {
        CTagName name{qvstring(row.absolute)};
        EXPECT_FALSE(name.IsRelative());
        EXPECT_EQ(name.ToRelative(row.base).TagName(), row.relative) << row.absolute << " from " << row.base;
        EXPECT_TRUE(name.IsRelative());
        EXPECT_EQ(name.ToAbsolute(row.base).TagName(), row.absolute) << row.relative << " from " << row.base;
    }
    std::mt19937 random(1);
    const auto randomName = [&] {
        qvstring name;
        for (size_t levels = random() % 4;; levels--) {
            name += "ABCd"[random() % 4];
            if (levels == 0)
                return name;
            name += '.';
        }
    };
    for (int i = 0; i < 5'000; i++) {
        const qvstring base = randomName();
        const qvstring name = randomName();
        ASSERT_EQ(CTagName(name).ToRelative(base).ToAbsolute(base).TagName(), name) << "from " << base;
    }
}

TEST(TagName, ClimbsAndStays) {
    const struct {
        const char* base;
        const char* name;
        const char* absolute;
    } rows[] = {
        {"A.B.C", ".D", "A.B.D"}, {"A.B.C", "..X.Y", "A.X.Y"},
        {"A.B.C", "...Z", "Z"},   {"A.B.C", ".......Z", "Z"},
        {"A.B.C", ".", "A.B"},    {"A.B.C", "...", ""},
        {"A.B.C", "X.Y", "X.Y"},  {"", ".D", ".D"},
        {"A.B.C", "", ""},        {".", ".D", "D"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(CTagName(qvstring(row.name)).ToAbsolute(row.base).TagName(), row.absolute) << row.name;
    EXPECT_EQ(CTagName("A.B.CD", 5).ToRelative("").TagName(), "A.B.C");
    EXPECT_EQ(CTagName(qvstring(".B")).ToRelative("A.C").TagName(), ".B");
    EXPECT_EQ(CTagName().ToRelative("A.C").TagName(), "");
}

TEST(TagName, MatchesPropertiesAndChildren) {
    const struct {
        const char* other;
        bool same;
        bool sameOrChild;
    } rows[] = {
        {"plant.pump1", true, true},          {"PLANT.PUMP1?Alarm", true, true},
        {"Plant.Pump1.Speed", false, true},   {"Plant.Pump10", false, false},
        {"Plant.Pump", false, false},         {"Plant.Pump2", false, false},
        {"Plant.Pump10.Speed", false, false}, {"", false, false},
    };
    const CTagName name(qvstring("Plant.Pump1"));
    for (const auto& row : rows) {
        EXPECT_EQ(name.IsOtherTagSameAsThisTag(row.other), row.same) << row.other;
        EXPECT_EQ(name.IsOtherTagSameOrChildOfThisTag(row.other), row.sameOrChild) << row.other;
    }
    EXPECT_FALSE(CTagName(qvstring("Grün")).IsOtherTagSameAsThisTag("GrÜN")) << "ASCII letters only";
}

TEST(TagName, FollowsARename) {
    const struct {
        const char* name;
        const char* base;
        const char* oldName;
        const char* newBase;
        const char* newName;
        const char* result; // null: unchanged, false
    } rows[] = {
        {"Plant.Pump1.Speed", "X.Y", "Plant.Pump1", "X.Y", "Plant.Pump2", "Plant.Pump2.Speed"},
        {"PLANT.PUMP1?Alarm", "X.Y", "Plant.Pump1", "X.Y", "P", "P?Alarm"},
        {"Plant.Pump10", "X.Y", "Plant.Pump1", "X.Y", "Plant.Pump2", nullptr},
        {".Speed", "Plant.Pump1.Status", "Plant.Pump1", "Plant.P1.Status", "Plant.P1", ".Speed"},
        {".Speed", "Plant.Pump1.Status", "Plant.Pump1.Speed", "Plant.Pump1.Status", "Plant.Pump1.Rate",
         ".Rate"},
        {"..Pump2.Speed", "Plant.Pump1.Status", "Plant.Pump2", "Other.Status", "Plant.P2",
         "..Plant.P2.Speed"},
        {".Speed", "Plant.Pump1.Status", "Plant.Pump2", "Z", "Y", nullptr},
    };
    for (const auto& row : rows) {
        CTagName name{qvstring(row.name)};
        EXPECT_EQ(name.RefactorTagName(row.base, CTagName(qvstring(row.oldName)), row.newBase, row.newName),
                  row.result != nullptr)
            << row.name;
        EXPECT_EQ(name.TagName(), row.result != nullptr ? row.result : row.name);
    }
}

void LoadInto(CTagPropertyEnumeration& loaded, const std::string& bytes, unsigned short version) {
    BytesInput in(bytes);
    loaded.LoadEnumeration(version, in);
}

CTagPropertyEnumeration Load(const std::string& bytes, unsigned short version) {
    CTagPropertyEnumeration loaded;
    LoadInto(loaded, bytes, version);
    return loaded;
}

std::string Save(const CTagPropertyEnumeration& enumeration, unsigned short version) {
    return Saved([&](CBinaryOutput& out) { enumeration.SaveEnumeration(version, out); });
}

std::string Print(const CTagPropertyEnumeration& enumeration) {
    CTextOutputString out;
    enumeration.PrintEnumeration(out);
    return out.GetString();
}

TEST(TagPropertyEnumeration, IsStoredPrintedAndSorted) {
    CTagPropertyEnumeration values;
    values.SetEnumFlag(true);
    values.AddEnumValue(true, 7, "on", "Ein");
    values.AddEnumValue(false, "off", "Aus");
    EXPECT_EQ(Hex(Save(values, 63)), "01 02 00 00 00 01 07 00 00 00 03 45 69 6E 02 6F 6E "
                                     "00 FF 00 00 00 03 41 75 73 03 6F 66 66");
    EXPECT_EQ(Save(values, 62), Save(values, 63).substr(1));
    EXPECT_EQ(Print(values), "+ Icon=07 on (Ein)\n  NoIcon off (Aus)\n");
    EXPECT_EQ(Print(Load(Save(values, 63), 63)), Print(values));
    EXPECT_TRUE(Load(Save(values, 63), 63).GetEnumFlag());
    EXPECT_FALSE(Load(Save(values, 62), 62).GetEnumFlag());

    values.AddEnumValue(false, 1'000, "auto", "Ein");
    values.ReverseEnumValues();
    EXPECT_EQ(Print(values), "  Icon=1000 auto (Ein)\n  NoIcon off (Aus)\n+ Icon=07 on (Ein)\n");
    values.SortValues([](const auto& a, const auto& b) { return a.m_SecondText < b.m_SecondText; });
    EXPECT_EQ(Print(values), "  NoIcon off (Aus)\n  Icon=1000 auto (Ein)\n+ Icon=07 on (Ein)\n") << "stable";
}

TEST(TagPropertyEnumeration, BelievesNoCount) {
    const std::string bytes = FromHex("01 FF FF FF FF 01 07 00 00 00 00 00");
    for (size_t length = 0; length <= bytes.size(); length++) {
        CTagPropertyEnumeration values;
        values.AddEnumValue(true, "on", "Ein");
        EXPECT_THROW(LoadInto(values, bytes.substr(0, length), 63), CBinaryInput::EOFException) << length;
        EXPECT_TRUE(values.GetValues().empty() && !values.GetEnumFlag()) << "no half of an enumeration";
    }
}

TEST(StringFromAlarmState, HasTextsForEveryState) {
    const struct {
        unsigned short state;
        const char* flags;
        const char* text;
    } rows[] = {
        {0, "Disabled Cleared", "Cleared (disabled)"},  {1, "Enabled Cleared", "Cleared"},
        {2, "Disabled Active", "Active (disabled)"},    {3, "Enabled Active", "Active"},
        {4, "Disabled NoAlarm", "Inactive (disabled)"}, {5, "Enabled NoAlarm", "Inactive"},
        {6, "Disabled Ack", "Acknowledged (disabled)"}, {7, "Enabled Ack", "Acknowledged"},
        {8, "Unknown", "** Invalid Alarm State **"},    {65'535, "Unknown", "** Invalid Alarm State **"},
    };
    for (const auto& row : rows) {
        const CStringFromAlarmState state(row.state);
        char text[64];
        EXPECT_STREQ(state.GetAsFlags(), row.flags);
        EXPECT_TRUE(state.GetDisplayText(CQVLocale(CQVLocale::German), text, sizeof text));
        EXPECT_STREQ(text, row.text) << "German has no texts for these";
        EXPECT_TRUE(state.GetDisplayText(CQVLocale(), text, 5));
        EXPECT_EQ(std::string(text), std::string(row.text).substr(0, 4));
    }
}

} // namespace
