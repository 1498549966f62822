#include "../BinaryStreams/BinaryStreamsTesting.h"
#include "support/BinaryBytes.h"
#include <QVLib/Parsing/ParseContext.h>
#include <QVLib/Presentation/ColourValue.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Ascii.h>
#include <QVPlatform/Format.h>
#include <QVPlatform/TextOutput.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

std::string Print(const CColourValue& colour) {
    CTextOutputString out;
    colour.PrintColourValue(out);
    return out.GetString();
}

CColourValue Load(const std::string& bytes) {
    BytesInput in(bytes);
    CColourValue colour(QVColourRGB(1, 2, 3));
    colour.LoadColourValue(in);
    return colour;
}

std::string Save(const CColourValue& colour) {
    return Saved([&](CBinaryOutput& out) { colour.SaveColourValue(out); });
}

TEST(ColourRGB, PacksMixesAndContrasts) {
    const QVColourRGB colour(0x11, 0x22, 0x33, 0x44);
    EXPECT_EQ(colour.GetRGB(), 0x44332211u);
    EXPECT_EQ(QVColourRGB(256, 300, 4'000'000'000).GetRGB(), 0x00FFFFFFu);
    QVColourRGB grey = colour;
    grey.SetGreyShade(7);
    EXPECT_EQ(grey.GetRGB(), 0x00070707u);

    const struct {
        const char* name;
        unsigned int luminance;
        bool bBlackOnIt;
    } rows[] = {{"White", 254, true}, {"Black", 0, false}, {"Yellow", 236, true}, {"Navy", 9, false},
                {"Gray", 127, false}, {"Red", 54, false},  {"Lime", 182, true}};
    for (const auto& row : rows) {
        CColourValue value;
        ASSERT_TRUE(value.ParseText(qvstring(row.name)));
        EXPECT_EQ(value.GetColour().GetLuminance(), row.luminance) << row.name;
        EXPECT_EQ(value.GetColour().GetContrastColour(),
                  row.bBlackOnIt ? QVColourRGB::Black : QVColourRGB::White);
    }

    const std::pair<int, unsigned int> mixes[] = {{-5, 0x44332211}, {0, 0x44332211},  {1, 0x00352413},
                                                  {50, 0x00998F88}, {99, 0x00FCFAFC}, {100, 0x99FFFDFF},
                                                  {101, 0x99FFFDFF}};
    for (const auto& [percent, word] : mixes) {
        QVColourRGB mixed = colour;
        mixed.InterpolateWith(percent, QVColourRGB(255, 253, 255, 0x99));
        EXPECT_EQ(mixed.GetRGB(), word) << percent;
    }
    CColourValue half;
    CColourValue(QVColourRGB::Black).InterpolateColour(CColourValue(QVColourRGB::White), half);
    EXPECT_EQ(Print(half), "#7f7f7f");
}

TEST(ColourValue, ParsesEveryForm) {
    const struct {
        const char* text;
        const char* printed;
        int form;
        const char* rest; // the token behind the colour
    } rows[] = {
        {"red", "Red", 3, ""},
        {"RED", "Red", 3, ""},
        {" \n AliceBlue x", "AliceBlue", 3, "x"},
        {"Grey", "Grey", 3, ""},
        {"#F80", "#f80", 1, ""},
        {"#FF8800", "#ff8800", 2, ""},
        {"#1a2b3c,", "#1a2b3c", 2, ","},
        {"#012", "#012", 1, ""},
        {"rgb(255, 136, 0)", "#ff8800", 2, ")"},
        {"RGB ( 100% , 50% , 0 )", "#ff7f00", 2, ")"},
        {"rgb(1 2 3)", "#010203", 2, ")"},
        {"rgb(1.9 2.5% 3.", "#010603", 2, "."},
        {"rgb(1 2 50 %", "#010232", 2, "%"},
        {"rgb(300, 101%, 99999999999999999999999999)", "#ffffff", 2, ")"},
        {"rgb(0.5%,99.9%,255.9", "#01feff", 2, ""},
        {"16776960", "#00ffff", 2, ""},
        {"255 ", "#ff0000", 2, ""},
        {"99999999999", "#ffffff", 2, ""},
    };
    for (const auto& row : rows) {
        TextInputQVString input(row.text, "n");
        COutputLogToString log;
        CParseContext context(&input, &log);
        CColourValue colour;
        ASSERT_TRUE(colour.Parse(context)) << row.text << " " << log.GetString();
        EXPECT_EQ(Print(colour), row.printed) << row.text;
        EXPECT_EQ(colour.GetForm(), row.form) << row.text;
        EXPECT_EQ(colour.GetNamedColour() != nullptr, row.form == ColourValueNamed);
        CParseToken token;
        context.GetNextTokenSkipWS(token);
        EXPECT_EQ(token.Text(), row.rest) << row.text;
        CColourValue again;
        EXPECT_TRUE(again.ParseText(Print(colour)));
        EXPECT_EQ(again.GetColour(), QVColourRGB(colour.GetColour().GetRed(), colour.GetColour().GetGreen(),
                                                 colour.GetColour().GetBlue()));
    }
}

TEST(ColourValue, CutsOffFractionsOfAnyLength) {
    const std::string zeros(400, '0');
    CColourValue colour;
    ASSERT_TRUE(colour.ParseText("rgb(0." + zeros + "1, " + zeros + "2.5, 1" + zeros + "%)"));
    EXPECT_EQ(Print(colour), "#0002ff");
}

TEST(ColourValue, RefusesWithAMessage) {
    const std::string numerical = "', invalid numerical format.  Expected '#rgb' or '#rrggbb'.";
    const std::pair<const char*, std::string> rows[] = {
        {"#ff880", "n(1,1-7): error 950: Color value '#ff880" + numerical},
        {"#ggg", "n(1,1-5): error 950: Color value '#ggg" + numerical},
        {"# f80", "n(1,1-2): error 950: Color value '#" + numerical},
        {"#1\u0661", "n(1,1-3): error 950: Color value '#1" + numerical},
        {"LightGray", "n(1,1-10): error 951: Named colour 'LightGray', not found."},
        {"", "n(1,1-1): error 952: Color value '', is invalid."},
        {"*", "n(1,1-2): error 952: Color value '*', is invalid."},
        {"rgb 1", "n(1,5-6): error 101: Found '1' when expecting '('."},
        {"rgb(x", "n(1,5-6): error 101: Found 'x' when expecting 'Red value'."},
        {"rgb(1,,2", "n(1,7-8): error 101: Found ',' when expecting 'Green value'."},
        {"rgb(1,2)", "n(1,8-9): error 101: Found ')' when expecting 'Blue value'."},
        {"rgb(-1", "n(1,5-6): error 101: Found '-' when expecting 'Red value'."},
    };
    for (const auto& [text, message] : rows) {
        TextInputQVString input(text, "n");
        COutputLogToString log;
        CParseContext context(&input, &log);
        CColourValue colour;
        colour.SetNamedColour(CColourValue::FindNamedColour("Tomato"));
        const CColourValue before = colour;
        EXPECT_FALSE(colour.Parse(context));
        EXPECT_EQ(log.GetString(), message + "\n");
        EXPECT_EQ(colour, before);
        EXPECT_FALSE(colour.ParseText(text, static_cast<unsigned int>(strlen(text))));
    }
}

TEST(ColourValue, StoresTheForm) {
    const std::pair<const char*, const char*> rows[] = {
        {"red", "03 03 52 65 64"}, {"#f80", "01 FF 88 00 00"}, {"4278190335", "02 FF 00 00 FF"}};
    for (const auto& [text, bytes] : rows) {
        CColourValue colour;
        ASSERT_TRUE(colour.ParseText(qvstring(text)));
        EXPECT_EQ(Hex(Save(colour)), bytes);
        EXPECT_EQ(Load(Save(colour)), colour);
        EXPECT_EQ(Load(Save(colour)).GetNamedColour(), colour.GetNamedColour());
        for (size_t length = 0; length < Save(colour).size(); length++)
            EXPECT_THROW(Load(Save(colour).substr(0, length)), CBinaryInput::EOFException);
    }
    EXPECT_EQ(Hex(Save(CColourValue())), "00 00 00 00 00");
    const CColourValue unknown = Load(FromHex("03 03 41 62 63"));
    EXPECT_EQ(Print(unknown), "#000");
    EXPECT_EQ(unknown.GetForm(), ColourValueShortHex);
    EXPECT_EQ(Load(FromHex("07 01 02 03 04")).GetForm(), 7);
    EXPECT_FALSE(CColourValue(QVColourRGB(255, 0, 0)) == Load(FromHex("03 03 52 65 64"))) << "another form";

    CColourValue loaded = Load(FromHex("03 03 52 65 64"));
    const std::string rgb = Saved([&](CBinaryOutput& out) { loaded.SaveRGBValue(out); });
    EXPECT_EQ(Hex(rgb), "FF 00 00 00");
    BytesInput in(rgb);
    loaded.LoadRGBValue(in);
    EXPECT_EQ(loaded, CColourValue(QVColourRGB(255, 0, 0)));
    EXPECT_EQ(loaded.GetNamedColour(), nullptr);
}

TEST(NamedColours, AreThoseOfCss) {
    ASSERT_TRUE(CColourValue::CheckNamedColourTable());
    ASSERT_EQ(CColourValue::GetNamedColourCount(), 142);
    // FNV-1a over "name#rrggbb" of all colours, computed from another list of CSS's values.
    unsigned long long hash = 0xCBF29CE484222325;
    int members[12] = {};
    for (int i = 0; i < 142; i++) {
        const NamedColour* const colour = CColourValue::GetNamedColourFromIndex(i);
        ASSERT_EQ(CColourValue::FindNamedColour(colour->m_pName), colour);
        ASSERT_EQ(CColourValue::GetIndexFromNamedColour(colour), i);
        members[colour->m_Group]++;
        char text[64];
        qv_sprintf(text, sizeof text, "%s#%02x%02x%02x", colour->m_pName, colour->m_Red, colour->m_Green,
                   colour->m_Blue);
        for (const char* c = text; *c != 0; c++)
            hash = (hash ^ static_cast<unsigned long long>(qv_ascii_to_lower(*c))) * 0x100000001B3;
    }
    EXPECT_EQ(hash, 0x92c31defa040fb87u);
    EXPECT_THAT(members, testing::ElementsAre(11, 9, 5, 11, 17, 20, 12, 15, 19, 6, 17, 0));
    EXPECT_STREQ(CColourValue::GetColourGroupName(ColourGroupGreyBlack), "Grey-Black");
    EXPECT_STREQ(CColourValue::GetColourGroupName(ColourGroupWhites), "Whites");
    EXPECT_STREQ(CColourValue::GetColourGroupName(static_cast<ColourGroup>(11)), "Unknown");
    EXPECT_STREQ(CColourValue::GetColourGroupName(static_cast<ColourGroup>(-1)), "Unknown");
    EXPECT_EQ(CColourValue::FindNamedColour("Reds"), nullptr);
    EXPECT_EQ(CColourValue::FindNamedColour(std::string("Red\0", 4)), nullptr);
    EXPECT_EQ(CColourValue::GetNamedColourFromIndex(142), nullptr);
    EXPECT_EQ(CColourValue::GetNamedColourFromIndex(-1), nullptr);
    EXPECT_EQ(CColourValue::GetIndexFromNamedColour(nullptr), -1);
}

} // namespace
