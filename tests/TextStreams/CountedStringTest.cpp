#include <QVLib/TextStreams/CountedString.h>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace {

struct Free {
    void operator()(Utf8String* text) const { Utf8StringFree(text); }
    void operator()(Utf16String* text) const { Utf16StringFree(text); }
};

// The twins by the same names, so that every test runs for both.
#define QV_FAMILY(Name, StringType, Prefix)                                                                  \
    struct Name {                                                                                            \
        using String = StringType;                                                                           \
        static constexpr auto Len = Prefix##Len;                                                             \
        static constexpr auto Compare = Prefix##Compare;                                                     \
        static constexpr auto Find = Prefix##Find;                                                           \
        static constexpr auto Left = Prefix##Left;                                                           \
        static constexpr auto Right = Prefix##Right;                                                         \
        static constexpr auto Mid = Prefix##Mid;                                                             \
        static constexpr auto Concat = Prefix##Concat;                                                       \
        static constexpr auto Insert = Prefix##Insert;                                                       \
        static constexpr auto Delete = Prefix##Delete;                                                       \
        static constexpr auto GetElement = Prefix##GetElement;                                               \
        static constexpr auto ToWChar = WCharFrom##StringType;                                               \
        static String* Make(const std::string& text) {                                                       \
            return Prefix##Copy(text.data(), static_cast<unsigned int>(text.size()));                        \
        }                                                                                                    \
    }
QV_FAMILY(Utf8Family, Utf8String, Utf8String);
QV_FAMILY(Utf16Family, Utf16String, Utf16String);

template<class Family>
class CountedStringTest : public testing::Test {
protected:
    using Owned = std::unique_ptr<typename Family::String, Free>;

    // The text of an ASCII result, which is freed.
    static std::string Take(typename Family::String* text) {
        const Owned owned(text);
        return std::string(text->GetUnits(), text->GetUnits() + text->m_Length);
    }
};

using Families = testing::Types<Utf8Family, Utf16Family>;
TYPED_TEST_SUITE(CountedStringTest, Families);

} // namespace

// The run that Mid() takes and Delete() removes, against the definition position by position.
TYPED_TEST(CountedStringTest, MidAndDeleteFollowThePositions) {
    const std::string text = "abcdef";
    const typename TestFixture::Owned string(TypeParam::Make(text));
    const int values[] = {INT_MIN, -7, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 10, INT_MAX};
    for (const int count : values) {
        for (const int start : values) {
            std::string inside, outside;
            for (long long position = 1; position <= 6; ++position) {
                const bool isInside = position >= start && position < static_cast<long long>(start) + count;
                (isInside ? inside : outside) += text[static_cast<std::size_t>(position - 1)];
            }
            EXPECT_EQ(this->Take(TypeParam::Mid(string.get(), count, start)), inside)
                << count << " from " << start;
            EXPECT_EQ(this->Take(TypeParam::Delete(string.get(), count, start)), outside)
                << count << " from " << start;
        }
    }
}

TYPED_TEST(CountedStringTest, LeftRightAndInsertClampTheirArguments) {
    const typename TestFixture::Owned abc(TypeParam::Make("abc")), xy(TypeParam::Make("XY")),
        empty(TypeParam::Make(""));
    const struct {
        int m_Argument;
        const char* m_Left;
        const char* m_Right;
        const char* m_Inserted;
    } cases[] = {
        {INT_MIN, "", "", "XYabc"}, {-1, "", "", "XYabc"},
        {0, "", "", "XYabc"},       {1, "a", "c", "XYabc"},
        {2, "ab", "bc", "aXYbc"},   {3, "abc", "abc", "abXYc"},
        {4, "abc", "abc", "abcXY"}, {INT_MAX, "abc", "abc", "abcXY"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(this->Take(TypeParam::Left(abc.get(), c.m_Argument)), c.m_Left) << c.m_Argument;
        EXPECT_EQ(this->Take(TypeParam::Right(abc.get(), c.m_Argument)), c.m_Right) << c.m_Argument;
        EXPECT_EQ(this->Take(TypeParam::Insert(abc.get(), xy.get(), c.m_Argument)), c.m_Inserted)
            << c.m_Argument;
        EXPECT_EQ(this->Take(TypeParam::Insert(abc.get(), empty.get(), c.m_Argument)), "abc");
        EXPECT_EQ(this->Take(TypeParam::Insert(empty.get(), xy.get(), c.m_Argument)), "XY");
    }
}

TYPED_TEST(CountedStringTest, FieldsAreCountedFromBothEnds) {
    const struct {
        const char* m_Text;
        int m_Index;
        const char* m_Field;
    } cases[] = {
        {"a,b,,c", 0, "a"},  {"a,b,,c", 1, "b"},  {"a,b,,c", 2, ""},   {"a,b,,c", 3, "c"},
        {"a,b,,c", 4, ","},  {"a,b,,c", -1, "c"}, {"a,b,,c", -2, ""},  {"a,b,,c", -4, "a"},
        {"a,b,,c", -5, ","}, {"", 0, ""},         {"", -1, ""},        {"", 1, ","},
        {"", -2, ","},       {",", 1, ""},        {"a", INT_MAX, ","}, {"a", INT_MIN, ","},
    };
    for (const auto& c : cases) {
        const typename TestFixture::Owned text(TypeParam::Make(c.m_Text));
        EXPECT_EQ(this->Take(TypeParam::GetElement(text.get(), ',', c.m_Index)), c.m_Field)
            << c.m_Text << " field " << c.m_Index;
    }
}

TYPED_TEST(CountedStringTest, CompareAndFind) {
    const struct {
        const char* m_A;
        const char* m_B;
        int m_Compared;
        int m_Found;
    } cases[] = {{"ab", "abc", -1, -1},       {"abc", "ab", 1, 0},     {"b", "a", 1, -1},
                 {"a", "e", -4, -1},          {"abcabc", "ca", -2, 2}, {"", "", 0, 0},
                 {"aab", "ab", 'a' - 'b', 1}, {"", "a", -1, -1}};
    for (const auto& c : cases) {
        const typename TestFixture::Owned a(TypeParam::Make(c.m_A)), b(TypeParam::Make(c.m_B));
        EXPECT_EQ(TypeParam::Compare(a.get(), b.get()), c.m_Compared) << c.m_A << " " << c.m_B;
        EXPECT_EQ(TypeParam::Find(a.get(), b.get()), c.m_Found) << c.m_A << " " << c.m_B;
    }
}

TYPED_TEST(CountedStringTest, NothingGrowsPastTheLimit) {
    const typename TestFixture::Owned a(TypeParam::Make(std::string(40000, 'a'))),
        b(TypeParam::Make(std::string(40000, 'b')));
    EXPECT_EQ(this->Take(TypeParam::Concat(a.get(), b.get())),
              std::string(40000, 'a') + std::string(25535, 'b'));
    EXPECT_EQ(this->Take(TypeParam::Insert(a.get(), b.get(), 2)),
              "a" + std::string(40000, 'b') + std::string(25534, 'a'));
    EXPECT_EQ(this->Take(TypeParam::Make(std::string(70000, 'c'))), std::string(65535, 'c'));
}

// A failed allocation arrives as a null argument of the next call.
TYPED_TEST(CountedStringTest, NullGivesNull) {
    const typename TestFixture::Owned abc(TypeParam::Make("abc"));
    const typename TypeParam::String* none = nullptr;
    EXPECT_EQ(TypeParam::Left(none, 1), nullptr);
    EXPECT_EQ(TypeParam::Right(none, 1), nullptr);
    EXPECT_EQ(TypeParam::Mid(none, 1, 1), nullptr);
    EXPECT_EQ(TypeParam::Delete(none, 1, 1), nullptr);
    EXPECT_EQ(TypeParam::GetElement(none, ',', 0), nullptr);
    EXPECT_EQ(TypeParam::Concat(abc.get(), none), nullptr);
    EXPECT_EQ(TypeParam::Insert(none, abc.get(), 1), nullptr);
    EXPECT_EQ(TypeParam::Len(none), 0u);
    EXPECT_EQ(TypeParam::Find(abc.get(), none), 0);
    EXPECT_EQ(TypeParam::Compare(abc.get(), none), 1);
    char buffer[] = "x";
    EXPECT_EQ(TypeParam::ToWChar(none, buffer, 2), 0u);
    EXPECT_STREQ(buffer, "");
}

TYPED_TEST(CountedStringTest, WCharIsCutAtAWholeCharacter) {
    const typename TestFixture::Owned text(TypeParam::Make("a\xC3\xBC\xE6\xB8\xA9"));
    const char* const expected[] = {"",          "",          "a",         "a",
                                    "a\xC3\xBC", "a\xC3\xBC", "a\xC3\xBC", "a\xC3\xBC\xE6\xB8\xA9"};
    for (unsigned int size = 0; size < 8; ++size) {
        char buffer[8];
        memset(buffer, '#', sizeof buffer);
        const unsigned int written = TypeParam::ToWChar(text.get(), buffer, size);
        if (size == 0)
            buffer[0] = buffer[0] == '#' ? '\0' : '!';
        EXPECT_STREQ(buffer, expected[size]);
        EXPECT_EQ(written, strlen(expected[size]));
    }
}

TEST(CountedStringMemory, LengthIsFollowedByTheUnits) {
    const unsigned char bytes[] = {0xFF, 0x41};
    const unsigned short units[] = {0xD83D, 0x0041};
    const std::unique_ptr<Utf8String, Free> utf8(Utf8StringCopy(bytes, 2));
    const std::unique_ptr<Utf16String, Free> utf16(Utf16StringCopy(units, 2));
    const unsigned short length = 2;
    EXPECT_EQ(memcmp(utf8.get(), &length, 2), 0);
    EXPECT_EQ(memcmp(reinterpret_cast<const char*>(utf8.get()) + 2, bytes, 2), 0);
    EXPECT_EQ(memcmp(utf16.get(), &length, 2), 0);
    EXPECT_EQ(memcmp(reinterpret_cast<const char*>(utf16.get()) + 2, units, 4), 0);
    // Units above 0x7F and 0x7FFF compare as unsigned.
    const std::unique_ptr<Utf8String, Free> a8(Utf8StringCopy("A", 1));
    const std::unique_ptr<Utf16String, Free> a16(Utf16StringCopy("A", 1));
    EXPECT_EQ(Utf8StringCompare(utf8.get(), a8.get()), 0xFF - 0x41);
    EXPECT_EQ(Utf16StringCompare(utf16.get(), a16.get()), 0xD83D - 0x41);
}

TEST(CountedStringConversion, BetweenTheEncodings) {
    const char text[] = "a\xC3\xBC\xF0\x9F\x98\x80";
    const unsigned char* const utf8 = reinterpret_cast<const unsigned char*>(text);
    const std::u16string units = u"a\u00FC\U0001F600";
    for (Utf16String* made : {Utf16StringCopy(text, 7), Utf16StringCopy(utf8, 7)}) {
        const std::unique_ptr<Utf16String, Free> owned(made);
        EXPECT_EQ(std::u16string(made->GetUnits(), made->GetUnits() + made->m_Length), units);
        const std::unique_ptr<Utf8String, Free> back(Utf8StringCopy(made->GetUnits(), made->m_Length));
        EXPECT_EQ(std::string(back->GetUnits(), back->GetUnits() + back->m_Length), text);
    }
    // The bytes of a qvstring are converted, so they end up well-formed; plain bytes are copied as they are.
    const std::unique_ptr<Utf8String, Free> converted(Utf8StringCopy("a\xFF", 2));
    EXPECT_EQ(std::string(converted->GetUnits(), converted->GetUnits() + converted->m_Length),
              "a\xEF\xBF\xBD");
}

TEST(CountedStringConversion, IsCutInFrontOfACharacterThatDoesNotFit) {
    std::string text(65534, 'a');
    text += "\xC3\xBC";
    const std::unique_ptr<Utf8String, Free> utf8(Utf8StringCopy(text.data(), 65536));
    EXPECT_EQ(Utf8StringLen(utf8.get()), 65534u);
    std::string faces = "a";
    for (int i = 0; i < 40000; ++i)
        faces += "\xF0\x9F\x98\x80";
    const std::unique_ptr<Utf16String, Free> utf16(
        Utf16StringCopy(faces.data(), static_cast<unsigned int>(faces.size())));
    EXPECT_EQ(Utf16StringLen(utf16.get()), 65535u);
    const std::unique_ptr<Utf16String, Free> even(
        Utf16StringCopy(faces.data() + 1, static_cast<unsigned int>(faces.size() - 1)));
    EXPECT_EQ(Utf16StringLen(even.get()), 65534u);
}
