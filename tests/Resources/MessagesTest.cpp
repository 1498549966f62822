#include <QVLib/Resources/Messages.h>
#include <cstdarg>
#include <gtest/gtest.h>
#include <map>
#include <string>

namespace {

const CQVLocale English;
const CQVLocale German(CQVLocale::German);

// The kinds of a text's printf arguments: "sd" for one %s and one %d. Anything but these shows up as '?'.
std::string GetArguments(const std::string& text) {
    std::string arguments;
    for (std::size_t i = text.find('%'); i != std::string::npos; i = text.find('%', i + 2)) {
        const char conversion = i + 1 < text.size() ? text[i + 1] : '?';
        if (conversion != '%')
            arguments += conversion == 's' || conversion == 'd' || conversion == 'g' ? conversion : '?';
    }
    return arguments;
}

std::string Format(const CQVLocale& locale, unsigned int size, unsigned int id, ...) {
    char buffer[256];
    va_list arguments;
    va_start(arguments, id);
    const unsigned int length = g_LibModule.FormatResourceStringVA(locale, id, buffer, size, arguments);
    va_end(arguments);
    return size == 0 ? std::string() : std::string(buffer, length);
}

TEST(MessagesTest, EveryNumberHasATextThatTakesTheArgumentsOfItsCallers) {
    const struct {
        unsigned int first;
        unsigned int last;
        const char* arguments;
    } promises[] = {
        {101, 101, "ss"}, {102, 102, "sss"}, {103, 103, "ssss"}, {104, 105, "ss"}, {106, 107, "s"},
        {108, 109, "ss"}, {111, 116, ""},    {117, 119, "s"},    {120, 120, "ss"}, {210, 218, ""},
        {500, 539, ""},   {750, 750, "sss"}, {751, 754, "s"},    {900, 902, "s"},  {903, 903, ""},
        {904, 905, "s"},  {906, 906, ""},    {907, 907, "s"},    {950, 952, "s"},  {953, 954, ""},
        {955, 955, "d"},  {956, 956, "s"},   {957, 958, "g"},    {959, 959, ""},   {960, 960, "s"},
        {961, 961, ""},
    };
    std::map<unsigned int, std::string> expected;
    for (const auto& promise : promises) {
        for (unsigned int id = promise.first; id <= promise.last; ++id)
            expected[id] = promise.arguments;
    }
    ASSERT_EQ(expected.size(), 93u);

    for (const CQVLocale& locale : {English, German}) {
        std::map<unsigned int, std::string> found;
        for (unsigned int id = 0; id <= 2000; ++id) {
            if (const char* text = g_LibModule.FindResourceString(locale, id)) {
                EXPECT_STRNE(text, "") << id;
                found[id] = GetArguments(text);
            }
        }
        EXPECT_EQ(found, expected);
    }
}

TEST(MessagesTest, TextsExpand) {
    EXPECT_EQ(Format(English, 256, 103, "a", "b", "c", "d"), "Found 'a' when expecting 'b', 'c' or 'd'.");
    EXPECT_EQ(Format(German, 256, 108, "IN", "x"), "Missing keyword 'IN' before 'x'.");
    EXPECT_EQ(Format(English, 256, 906), "Escaped property name must be terminated with a grave accent (`).");
    EXPECT_EQ(Format(English, 256, 950, "#12"),
              "Color value '#12', invalid numerical format.  Expected '#rgb' or '#rrggbb'.");
    EXPECT_EQ(Format(English, 256, 955, 12), "Too many gradient stops. The maximum number supported is 12.");
    EXPECT_EQ(Format(English, 256, 958, 150.5),
              "Gradient offset '150.5%', out of range. The valid range is between 0% and 100%.");
    EXPECT_EQ(Format(English, 256, 110), "Resource string with id 110 not found!");
    EXPECT_EQ(Format(English, 10, 106, "abc"), "Syntax er");
    EXPECT_EQ(Format(English, 0, 106, "abc"), "");
}

TEST(MessagesTest, TheLocaleChoosesTheLanguageOfMonthsAndDays) {
    constexpr const char* GermanTexts[] = {
        "Jan",    "Feb",      "Mär",      "Apr",        "Mai",       "Jun",     "Jul",      "Aug",
        "Sep",    "Okt",      "Nov",      "Dez",        "Januar",    "Februar", "Marz",     "April",
        "Mai",    "Juni",     "Juli",     "August",     "September", "Oktober", "November", "Dezember",
        "So",     "Mo",       "Di",       "Mi",         "Do",        "Fr",      "Sa",       "Sonntag",
        "Montag", "Dienstag", "Mittwoch", "Donnerstag", "Freitag",   "Samstag"};
    unsigned int id = QVMessage::FirstShortMonth;
    for (const char* text : GermanTexts)
        EXPECT_STREQ(g_LibModule.FindResourceString(German, id++), text);
    EXPECT_EQ(id, QVMessage::BeforeNoon);

    char buffer[16];
    const CQVLocale french(1036);
    for (const CQVLocale& locale : {English, German, french})
        EXPECT_TRUE(g_LibModule.LoadResourceString(locale, QVMessage::AfterNoon, buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "PM");
    EXPECT_TRUE(g_LibModule.LoadResourceString(french, QVMessage::FirstLongDay + 2, buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "Tuesday");
    // "M", the two bytes of a letter that do not fit beside the terminator, "r".
    EXPECT_TRUE(g_LibModule.LoadResourceString(German, 502, buffer, 3));
    EXPECT_STREQ(buffer, "M");
    EXPECT_FALSE(g_LibModule.LoadResourceString(German, 499, buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "");
}

} // namespace
