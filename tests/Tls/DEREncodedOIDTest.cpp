#include <QVLib/Tls/DEREncodedOID.h>

#include <QVPlatform/TextOutput.h>

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

std::string Print(const DEREncodedOID& oid) {
    CTextOutputString out;
    oid.Print(out);
    return out.GetString();
}

DEREncodedOID FromBytes(const std::string& bytes) {
    DEREncodedOID oid;
    EXPECT_TRUE(oid.SetData(reinterpret_cast<const unsigned char*>(bytes.data()),
                            static_cast<unsigned int>(bytes.size())));
    return oid;
}

bool AreSame(const DEREncodedOID& a, const DEREncodedOID& b) {
    return !(a < b) && !(b < a);
}

} // namespace

TEST(DEREncodedOID, ReadsTextIntoBytesAndBack) {
    const struct {
        const char* text;
        std::string bytes;
        const char* printed; // null: as the text
    } rows[] = {
        {"1.2.840.113549", "\x2A\x86\x48\x86\xF7\x0D", nullptr},
        {"2.999.3", "\x88\x37\x03", nullptr},
        {"0.0", std::string(1, '\0'), nullptr},
        {"0.39", "\x27", nullptr},
        {"1.0", "\x28", nullptr},
        {"1.39", "\x4F", nullptr},
        {"2.0", "\x50", nullptr},
        {"1.45", "\x55", "2.5"},
        {"1.2.127.128.16383.16384", std::string("\x2A\x7F\x81\0\xFF\x7F\x81\x80\0", 9), nullptr},
        {"1.2.4294967295", "\x2A\x8F\xFF\xFF\xFF\x7F", nullptr},
        {"2.4294967215", "\x8F\xFF\xFF\xFF\x7F", nullptr},
        {"1.2.", std::string("\x2A\0", 2), "1.2.0"},
        {".5", "\x05", "0.5"},
        {"1..2", "\x28\x02", "1.0.2"},
        {" 1.+2. 3", "\x2A\x03", "1.2.3"},
        {"000001.2", "\x2A", "1.2"},
    };
    for (const auto& row : rows) {
        DEREncodedOID oid;
        EXPECT_TRUE(oid.Parse(row.text)) << row.text;
        EXPECT_TRUE(AreSame(oid, FromBytes(row.bytes))) << row.text;
        EXPECT_EQ(Print(oid), row.printed == nullptr ? row.text : row.printed);
    }
    const DEREncodedOID oid("1.2.840.113549");
    EXPECT_EQ(oid.GetArcCount(), 4u);
    const unsigned int arcs[] = {1, 2, 840, 113549, 0, 0};
    for (unsigned int i = 0; i < 6; ++i)
        EXPECT_EQ(oid.GetArcValue(i), arcs[i]);
    EXPECT_EQ(oid.GetArcValue(4294967295u), 0u);
}

TEST(DEREncodedOID, RefusesOtherTextsAndIsThenEmpty) {
    for (const char* text :
         {"", "1", "1.2x", "x", "1.x", "1,2", "1.2.3 ", "1.-2", "-1.2", "1.2.-3", "1.2.4294967296",
          "1.2.18446744073709551617", "4294967296.0", "107374183.0", "1.4294967256", "1.4294967295"}) {
        DEREncodedOID oid("2.5.4.3");
        EXPECT_FALSE(oid.Parse(text)) << text;
        EXPECT_EQ(oid.GetArcCount(), 0u) << text;
        EXPECT_EQ(oid.GetArcValue(0), 0u);
        EXPECT_EQ(Print(oid), "");
        EXPECT_EQ(DEREncodedOID(text).GetArcCount(), 0u);
    }
}

TEST(DEREncodedOID, NeverHoldsMoreThanItsBytes) {
    std::string text = "1.2";
    for (unsigned int i = 1; i < DEREncodedOID::MaxOIDLength; ++i)
        text += ".7";
    DEREncodedOID oid;
    EXPECT_TRUE(oid.Parse(text.c_str()));
    EXPECT_EQ(oid.GetArcCount(), DEREncodedOID::MaxOIDLength + 1);
    EXPECT_FALSE(oid.AddArc(0));
    EXPECT_FALSE(oid.AddFirstArc(1, 2));
    EXPECT_EQ(Print(oid), text);
    EXPECT_FALSE(oid.Parse((text + ".0").c_str()));
    EXPECT_EQ(oid.GetArcCount(), 0u);

    // Four bytes are left, and the value needs five.
    EXPECT_TRUE(oid.Parse(text.substr(0, text.size() - 8).c_str()));
    EXPECT_FALSE(oid.AddArc(0x10000000));
    EXPECT_TRUE(oid.AddArc(0xFFFFFFF));
    EXPECT_EQ(oid.GetArcValue(125), 0xFFFFFFFu);

    const DEREncodedOID before = oid;
    const unsigned char bytes[129] = {};
    EXPECT_FALSE(oid.SetData(bytes, 129));
    EXPECT_TRUE(AreSame(oid, before));
    EXPECT_TRUE(oid.SetData(bytes, 128));
    EXPECT_EQ(oid.GetArcCount(), 129u);
    EXPECT_TRUE(oid.SetData(nullptr, 0));
    EXPECT_EQ(oid.GetArcCount(), 0u);
}

TEST(DEREncodedOID, ReadsHostileBytesWithinTheirEnd) {
    const struct {
        std::string bytes;
        const char* printed;
        unsigned int count;
    } rows[] = {
        {"\x81", "0.1", 2},
        {"\x2A\x81\x82", "1.2.130", 3},
        {"\x2A\x80\x80\x80\x80\x80\x80\x05", "1.2.5", 3},
        {"\x2A\x90\x80\x80\x80\x01\x03", "1.2.4294967295.3", 4},
        {"\xFF\xFF\xFF\xFF\xFF\xFF\x7F", "2.4294967215", 2},
    };
    for (const auto& row : rows) {
        const DEREncodedOID oid = FromBytes(row.bytes);
        EXPECT_EQ(Print(oid), row.printed);
        EXPECT_EQ(oid.GetArcCount(), row.count) << row.printed;
    }
}

TEST(DEREncodedOID, OrdersByLengthFirst) {
    const std::map<DEREncodedOID, int, DEREncodedOID::Compare> map = {
        {DEREncodedOID("1.2.840"), 4}, {DEREncodedOID("2.5.4"), 3},   {DEREncodedOID(), 0},
        {DEREncodedOID("2.5"), 1},     {DEREncodedOID("1.3.127"), 2},
    };
    int expected = 0;
    for (const auto& [oid, number] : map)
        EXPECT_EQ(number, expected++) << Print(oid);
}
