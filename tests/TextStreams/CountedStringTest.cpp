#include <QVLib/TextStreams/CountedString.h>
#include <algorithm>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Free {
    void operator()(Utf8String* text) const { Utf8StringFree(text); }
    void operator()(Utf16String* text) const { Utf16StringFree(text); }
};
using Owned8 = std::unique_ptr<Utf8String, Free>;
using Owned16 = std::unique_ptr<Utf16String, Free>;

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

std::string FieldOf(const std::string& text, int index) {
    std::vector<std::string> fields(1);
    for (const char c : text)
        if (c == ',')
            fields.emplace_back();
        else
            fields.back() += c;
    const long long count = static_cast<long long>(fields.size()), at = index < 0 ? count + index : index;
    return at < 0 || at >= count ? "," : fields[static_cast<std::size_t>(at)];
}

} // namespace

// Against the definitions, position by position.
TYPED_TEST(CountedStringTest, EditsFollowThePositions) {
    const int values[] = {INT_MIN, -7, -5, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 10, INT_MAX};
    for (const std::string text : {"abcdef", "a,b,,c", "", ",", "a"}) {
        const typename TestFixture::Owned string(TypeParam::Make(text)), added(TypeParam::Make("XY"));
        for (const int value : values) {
            SCOPED_TRACE(testing::Message() << text << " " << value);
            const auto clamped = [&text](long long count) {
                return static_cast<std::size_t>(std::clamp<long long>(count, 0, std::ssize(text)));
            };
            EXPECT_EQ(this->Take(TypeParam::Left(string.get(), value)), text.substr(0, clamped(value)));
            EXPECT_EQ(this->Take(TypeParam::Right(string.get(), value)),
                      text.substr(text.size() - clamped(value)));
            EXPECT_EQ(this->Take(TypeParam::Insert(string.get(), added.get(), value)),
                      std::string(text).insert(clamped(value - 1LL), "XY"));
            EXPECT_EQ(this->Take(TypeParam::GetElement(string.get(), ',', value)), FieldOf(text, value));
            for (const int start : values) {
                std::string inside, outside;
                for (long long position = 1; position <= std::ssize(text); ++position) {
                    const bool isInside = position >= start && position < 0LL + start + value;
                    (isInside ? inside : outside) += text[static_cast<std::size_t>(position - 1)];
                }
                EXPECT_EQ(this->Take(TypeParam::Mid(string.get(), value, start)), inside) << start;
                EXPECT_EQ(this->Take(TypeParam::Delete(string.get(), value, start)), outside) << start;
            }
        }
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
    const std::string as(40000, 'a'), bs(40000, 'b');
    const typename TestFixture::Owned a(TypeParam::Make(as)), b(TypeParam::Make(bs));
    EXPECT_EQ(this->Take(TypeParam::Concat(a.get(), b.get())), as + bs.substr(0, 25535));
    EXPECT_EQ(this->Take(TypeParam::Insert(a.get(), b.get(), 2)), "a" + bs + as.substr(0, 25534));
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
    const typename TestFixture::Owned text(TypeParam::Make("aü温"));
    const std::string cuts[] = {"", "", "a", "a", "aü", "aü", "aü", "aü温"};
    for (unsigned int size = 0; size < 8; ++size) {
        std::string buffer(8, '#'), expected = buffer;
        if (size > 0)
            expected.replace(0, cuts[size].size() + 1, cuts[size].c_str(), cuts[size].size() + 1);
        EXPECT_EQ(TypeParam::ToWChar(text.get(), buffer.data(), size), cuts[size].size());
        EXPECT_EQ(buffer, expected);
    }
}

TEST(CountedStringMemory, LengthIsFollowedByTheUnits) {
    const unsigned char bytes[] = {0xFF, 0x41};
    const unsigned short units[] = {0xD83D, 0x0041};
    const Owned8 utf8(Utf8StringCopy(bytes, 2)), a8(Utf8StringCopy("A", 1));
    const Owned16 utf16(Utf16StringCopy(units, 2)), a16(Utf16StringCopy("A", 1));
    const unsigned short utf16Memory[] = {2, 0xD83D, 0x0041};
    EXPECT_EQ(memcmp(utf8.get(), utf16Memory, 2), 0);
    EXPECT_EQ(memcmp(reinterpret_cast<const char*>(utf8.get()) + 2, bytes, 2), 0);
    EXPECT_EQ(memcmp(utf16.get(), utf16Memory, 6), 0);
    // Units above 0x7F and 0x7FFF compare as unsigned.
    EXPECT_EQ(Utf8StringCompare(utf8.get(), a8.get()), 0xFF - 0x41);
    EXPECT_EQ(Utf16StringCompare(utf16.get(), a16.get()), 0xD83D - 0x41);
}

TEST(CountedStringConversion, BetweenTheEncodings) {
    const char text[] = "aü😀";
    const unsigned char* const utf8 = reinterpret_cast<const unsigned char*>(text);
    for (Utf16String* made : {Utf16StringCopy(text, 7), Utf16StringCopy(utf8, 7)}) {
        const Owned16 owned(made);
        EXPECT_EQ(std::u16string(made->GetUnits(), made->GetUnits() + made->m_Length), u"aü😀");
        const Owned8 back(Utf8StringCopy(made->GetUnits(), made->m_Length));
        EXPECT_EQ(std::string(back->GetUnits(), back->GetUnits() + back->m_Length), text);
    }
    // The bytes of a qvstring are converted, so they end up well-formed; plain bytes are copied as they are.
    const Owned8 converted(Utf8StringCopy("a\xFF", 2));
    EXPECT_EQ(std::string(converted->GetUnits(), converted->GetUnits() + converted->m_Length), "a\uFFFD");
}

TEST(CountedStringConversion, IsCutInFrontOfACharacterThatDoesNotFit) {
    const std::string text = std::string(65534, 'a') + "ü";
    const Owned8 utf8(Utf8StringCopy(text.data(), 65536));
    EXPECT_EQ(Utf8StringLen(utf8.get()), 65534u);
    std::string faces = "a";
    for (int i = 0; i < 40000; ++i)
        faces += "😀";
    const Owned16 utf16(Utf16StringCopy(faces.data(), 160001)),
        even(Utf16StringCopy(faces.data() + 1, 160000));
    EXPECT_EQ(Utf16StringLen(utf16.get()), 65535u);
    EXPECT_EQ(Utf16StringLen(even.get()), 65534u);
}
