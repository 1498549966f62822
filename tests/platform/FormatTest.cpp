#include <QVPlatform/Assert.h>
#include <QVPlatform/Format.h>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <support/DecimalComma.h>

namespace {

TEST(Format, WritesWhatFitsAndReturnsWhatItWrote) {
    const struct {
        const char* text;
        unsigned int size;
        const char* written;
    } cases[] = {
        {"volume", 7, "volume"},
        {"volume", 6, "volum"},
        {"volume", 1, ""},
        {"", 1, ""},
        {"20\xC2\xB0", 5, "20\xC2\xB0"},
        {"20\xC2\xB0", 4, "20"},
        {"\xE2\x82\xAC", 3, ""},
        {"\xE2\x82\xAC", 2, ""},
        {"x\xF0\x9F\x98\x80y", 5, "x"},
        {"x\xF0\x9F\x98\x80y", 6, "x\xF0\x9F\x98\x80"},
        {"\x80\x80\x80\x80\x80", 5, "\x80\x80\x80\x80"}, // no character at all: nothing to keep whole
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.text << " in " << c.size);
        const auto buffer = std::make_unique<char[]>(c.size); // exactly, for AddressSanitizer
        EXPECT_EQ(qv_sprintf(buffer.get(), c.size, "%s", c.text), strlen(c.written));
        EXPECT_STREQ(buffer.get(), c.written);
        memset(buffer.get(), '#', c.size);
        EXPECT_EQ(qv_strcpy(buffer.get(), c.size, c.text), strlen(c.written));
        EXPECT_STREQ(buffer.get(), c.written);
    }
    char untouched = '#';
    EXPECT_EQ(qv_sprintf(&untouched, 0, "%d", 1), 0U);
    EXPECT_EQ(qv_strcpy(&untouched, 0, "a"), 0U);
    EXPECT_EQ(untouched, '#');
}

TEST(Format, WhatDoesNotFitMayEndWithDots) {
    const struct {
        const char* text;
        unsigned int size;
        const char* written;
    } cases[] = {{"volume", 7, "volume"}, {"volume", 6, "vo..."},         {"volume", 4, "..."},
                 {"volume", 2, "."},      {"a\xC2\xB0volume", 6, "a..."}, {"", 1, ""}};
    for (const auto& c : cases) {
        const auto buffer = std::make_unique<char[]>(c.size);
        EXPECT_EQ(qv_sprintf_with_elipsis(buffer.get(), c.size, "%s", c.text), strlen(c.written));
        EXPECT_STREQ(buffer.get(), c.written);
    }
}

TEST(Format, DoesNotDependOnTheProcessLocale) {
    char text[64];
    qv_sprintf(text, sizeof text, "%.2f %lc", 1234.5, static_cast<wint_t>(0xE9));
    EXPECT_STREQ(text, "1234.50 \xC3\xA9");

    const DecimalComma comma;
    qv_sprintf(text, sizeof text, "%.2f", 1234.5);
    EXPECT_STREQ(text, "1234.50");
}

TEST(AssertDeathTest, NamesFileLineAndConditionAndAborts) {
    QV_ASSERT(1 + 1 == 2);
    EXPECT_EXIT(QV_ASSERT(1 + 1 == 3), testing::KilledBySignal(SIGABRT),
                "FormatTest\\.cpp:[0-9]+: assertion failed: 1 \\+ 1 == 3\n");
}

} // namespace
