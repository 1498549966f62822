#include "../BinaryStreams/BinaryStreamsTesting.h"
#include "support/BinaryBytes.h"
#include <QVLib/TextStreams/TextInputString.h>
#include <QVLib/Utilities/BuildIdentity.h>
#include <QVLib/Utilities/CString.h>
#include <QVLib/Utilities/Crc16.h>
#include <QVLib/Utilities/FindPermutation.h>
#include <QVLib/Utilities/Guid.h>
#include <QVLib/Utilities/RateCalculator.h>
#include <QVLib/Utilities/UniformResourceLocator.h>
#include <QVPlatform/OutputLog.h>
#include <QVPlatform/TextOutput.h>
#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <set>
#include <vector>

namespace {

std::string Text(const auto& object, auto print) {
    CTextOutputString out;
    (object.*print)(out);
    return out.GetString();
}

std::string Text(const QVGuid& guid) {
    return Text(guid, &QVGuid::PrintGuid);
}

template<class Load>
auto FromBytes(const std::string& bytes, Load load) {
    BytesInput in(bytes);
    return load(in);
}

TEST(Guid, ParsesToTheFailingStep) {
    const struct {
        std::string text;
        int result;
        std::string rest = "";
    } rows[] = {
        {"0f1e2d3c-4b5a-4978-8796-a5b4c3d2e1f0", 0},
        {"0F1E2D3C-4B5A-4978-8796-A5B4C3D2E1F0}", 0, "}"},
        {"", 1},
        {"0f1e2d3-4b5a", 1, "4b5a"},
        {"0f1e2d3c4b5a", 2, "b5a"},
        {"0f1e2d3c-4b5", 3},
        {"0f1e2d3c-4b5a", 4},
        {"0f1e2d3c-4b5a-49g8", 5, "8"},
        {"0f1e2d3c-4b5a-4978 ", 6},
        {"0f1e2d3c-4b5a-4978-8796a5b4c3d2e1f0", 7, "5b4c3d2e1f0"},
        {"0f1e2d3c-4b5a-4978-87", 8},
        {"0f1e2d3c-4b5a-4978-8796-a5b4c3d2e1f", 8},
        {"\u0660f1e2d3c-", 1, "f1e2d3c-"}, // a digit, but not of ASCII
    };
    for (const auto& row : rows) {
        TextInputQVString input(row.text, "");
        QVGuid guid;
        EXPECT_EQ(guid.ParseGuid(&input), row.result) << row.text;
        EXPECT_TRUE(row.result != QVGuid::ParseDone || Text(guid) == rows[0].text) << Text(guid);
        std::string rest;
        for (int codePoint; input.ReadCodePoint(codePoint);)
            rest += static_cast<char>(codePoint);
        EXPECT_EQ(rest, row.rest) << row.text;
    }
}

TEST(Guid, LiesInMemoryAsItIsSaved) {
    unsigned char hash[20];
    std::iota(std::begin(hash), std::end(hash), static_cast<unsigned char>(0));
    hash[8] = 0xFF;
    QVGuid guid;
    EXPECT_TRUE(guid.IsNull());
    EXPECT_EQ(Text(guid), "00000000-0000-0000-0000-000000000000");
    guid.SetFromHashSHA1(hash);
    EXPECT_FALSE(guid.IsNull());
    EXPECT_EQ(Text(guid), "03020100-0504-5706-8c09-0a0b0c0d0e0f");

    const std::string saved = Saved([&](CBinaryOutput& out) { guid.SaveGuid(out); });
    EXPECT_EQ(Hex(saved), "00 01 02 03 04 05 06 57 8C 09 0A 0B 0C 0D 0E 0F");
    QVGuid loaded;
    FromBytes(saved, [&](CBinaryInput& in) { loaded.LoadGuid(in); });
    EXPECT_EQ(loaded, guid);
    EXPECT_THROW(FromBytes(saved.substr(1), [&](CBinaryInput& in) { loaded.LoadGuid(in); }),
                 CBinaryInput::EOFException);
    EXPECT_EQ(loaded, guid) << "a failed load changes nothing";

    hash[0] = 1; // the first byte in memory weighs most, although it is printed last of its number
    QVGuid greater;
    greater.SetFromHashSHA1(hash);
    EXPECT_GT(greater.CompareGuid(guid), 0);
    EXPECT_LT(guid.CompareGuid(greater), 0);
}

TEST(Guid, RandomOnesDifferAndSayTheirVersion) {
    std::set<std::string> seen;
    for (int i = 0; i < 200; i++) {
        QVGuid guid;
        ASSERT_TRUE(guid.SetRandom());
        const std::string text = Text(guid);
        EXPECT_EQ(text[14], '4') << text;
        EXPECT_EQ(text[19], '8') << text;
        EXPECT_NE(std::string("048c").find(text[20]), std::string::npos) << text;
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 200u);
}

TEST(Crc16, AgreesWithPublishedFrames) {
    // A value has its high byte first, a frame carries the low byte first.
    const std::pair<std::string, unsigned short> rows[] = {
        {"123456789", 0x4B37},
        {"", 0xFFFF},
        {FromHex("02 07"), 0x1241},             // the example of the serial line specification
        {FromHex("01 03 00 00 00 0A"), 0xCDC5}, // read holding registers
        {FromHex("11 03 00 6B 00 03"), 0x8776}, // read holding registers of unit 17
        {FromHex("01 06 00 01 00 03"), 0x0B98}, // write a register
    };
    for (const auto& [bytes, value] : rows) {
        CCrc16 crc(0xFFFF);
        crc.AddBytes(reinterpret_cast<const unsigned char*>(bytes.data()),
                     static_cast<unsigned int>(bytes.size()));
        EXPECT_EQ(crc.GetValue(), value) << Hex(bytes);
        EXPECT_EQ(crc.GetHighByte() * 256 + crc.GetLowByte(), value);
    }
}

TEST(Crc16, TakesBytesInAnyPieces) {
    std::vector<unsigned char> data(1'000);
    for (size_t i = 0; i < data.size(); i++)
        data[i] = static_cast<unsigned char>(i * i >> 3);
    for (unsigned int length = 0; length < 40; length++) {
        for (unsigned int first = 0; first <= length; first++) {
            CCrc16 pieces(static_cast<unsigned short>(length * 1'999));
            CCrc16 bytes(static_cast<unsigned short>(length * 1'999));
            pieces.AddBytes(data.data() + 500, first);
            pieces.AddBytes(data.data() + 500 + first, length - first);
            QVDataSink& sink = bytes; // one by one
            sink.AddBytes(data.data() + 500, length);
            ASSERT_EQ(pieces.GetValue(), bytes.GetValue()) << first << " of " << length;
        }
    }
}

TEST(BuildIdentity, ReadsEveryFormatAndNothingElse) {
    const std::string time = "00 00 00 00 00 00 00 01";
    // What is not loaded is refused.
    const std::pair<std::string, std::string> rows[] = {
        {"42 49 03 00 02 41 62 " + time + " 03 00 0C 00", "Ab 3.12"},
        {"42 49 02 00 02 41 62 01 78 00 " + time + " 04 00 05 00", "Ab 4.5"},
        {"42 49 01 00 01 41 00 01 79 " + time, "A 1.0"},
        {"42 49 00 00 01 41 " + time, ""},
        {"42 49 04 00 01 41 " + time + " 03 00 0C 00", ""},
        {"49 42 03 00 02 41 62 " + time + " 03 00 0C 00", ""},
    };
    for (const auto& [hex, loaded] : rows) {
        const std::string bytes = FromHex(hex);
        CBuildIdentity identity;
        const bool bLoaded = FromBytes(bytes, [&](CBinaryInput& in) { return identity.Load(in); });
        EXPECT_EQ(bLoaded, !loaded.empty()) << hex;
        if (!bLoaded) {
            EXPECT_EQ(identity.GetProjectName(), "");
            continue;
        }
        EXPECT_EQ(identity.GetProjectName() + " " + std::to_string(identity.GetMajorVersion()) + "." +
                      std::to_string(identity.GetMinorVersion()),
                  loaded);
        EXPECT_EQ(identity.GetBuildTime(), CQVTimestamp(1LL << 56));
        for (size_t length = 0; length < bytes.size(); length++) {
            EXPECT_THROW(
                FromBytes(bytes.substr(0, length), [&](CBinaryInput& in) { return identity.Load(in); }),
                CBinaryInput::EOFException);
            EXPECT_EQ(identity.GetBuildTime(), CQVTimestamp(1LL << 56)) << "a failed load changes nothing";
        }
    }
}

TEST(BuildIdentity, IsSavedAndShown) {
    CQVTimestamp before;
    before.SetUTC();
    CBuildIdentity identity;
    identity.SetProjectName("gone after Set()");
    identity.Set(312);
    COutputLogToString log;
    identity.Dump(log);
    EXPECT_EQ(log.GetString(), " Project : None\n    Date : -\n Version : -\n");
    EXPECT_GE(identity.GetBuildTime(), before);

    identity.SetProjectName("Wasserwerk Süd");
    const std::string saved = Saved([&](CBinaryOutput& out) { identity.Save(out); });
    CBuildIdentity loaded;
    EXPECT_TRUE(FromBytes(saved, [&](CBinaryInput& in) { return loaded.Load(in); }));
    EXPECT_EQ(loaded.GetBuildTime(), identity.GetBuildTime());
    log.Clear();
    loaded.Dump(log);
    qvstring time;
    loaded.GetBuildTime().ToText(time);
    time[10] = ' ';
    EXPECT_EQ(log.GetString(), " Project : Wasserwerk Süd\n    Date : " + time + "\n Version : 3.12\n");
}

TEST(RateCalculator, FadesOutOverOnePeriod) {
    constexpr long long second = CQVTimeInterval::UnitsPerSecond;
    RateCalculator rate{CQVTimeInterval(10 * second)};
    EXPECT_EQ(rate.GetRate(), 0);
    const struct {
        long long time;
        unsigned int count;
        double rate;
    } rows[] = {
        {1'000 * second, 10, 10}, {1'005 * second, 10, 15}, {1'005 * second, 1, 16},
        {1'004 * second, 4, 20}, // the clock was set back: nothing fades, nothing grows
        {1'009 * second, 0, 10},  {1'019 * second, 7, 7},   {9'999 * second, 4'000'000'000, 4e9},
    };
    for (const auto& row : rows) {
        rate.AddSample(row.count, CQVTimestamp(row.time));
        EXPECT_DOUBLE_EQ(rate.GetRate(), row.rate) << row.time / second;
    }
    RateCalculator now{CQVTimeInterval(CQVTimeInterval::UnitsPerDay)};
    now.AddSample(100);
    now.AddSample(1);
    EXPECT_NEAR(now.GetRate(), 101, 0.5);
}

TEST(FindPermutation, VisitsEveryOrderOnce) {
    for (const std::vector<unsigned int>& values :
         {std::vector<unsigned int>{}, {7}, {3, 1, 2}, {2, 1}, {5, 5}, {1, 2, 2, 1}, {4, 0, 3, 1, 2}}) {
        std::vector<unsigned int> sorted = values;
        std::sort(sorted.begin(), sorted.end());
        CFindPermutation order(static_cast<int>(values.size()), values.data());
        bool bMore = true;
        while (bMore) {
            for (int i = 0; i < order.GetCount(); i++)
                ASSERT_EQ(order.GetValue(i), sorted[static_cast<size_t>(i)]);
            bMore = order.Next();
            const std::vector<unsigned int> before = sorted;
            ASSERT_EQ(std::next_permutation(sorted.begin(), sorted.end()), bMore);
            if (!bMore)
                sorted = before;
        }
        EXPECT_FALSE(order.Next());
        for (int i = 0; i < order.GetCount(); i++)
            EXPECT_EQ(order.GetValue(i), sorted[static_cast<size_t>(i)]) << "stays at the last order";
    }
    const unsigned int values[] = {3, 1, 2};
    CFindPermutation order(3, values);
    order.Next();
    EXPECT_EQ(Text(order, &CFindPermutation::Print), "[ 1, 3, 2 ]");
    EXPECT_EQ(Text(CFindPermutation(0, nullptr), &CFindPermutation::Print), "[  ]");
    const std::vector<unsigned int> equal(1'000'000, 9);
    EXPECT_FALSE(CFindPermutation(1'000'000, equal.data()).Next());
}

TEST(CString, OwnsWhatItHolds) {
    QVCString text;
    EXPECT_STREQ(text.GetCStr(), "");
    text.FromQVString("Grün");
    EXPECT_STREQ(text.GetCStr(), "Grün");
    EXPECT_EQ(text.GetLength(), 5u);

    QVCString copy(text);
    copy = *&copy;
    QVCString moved(std::move(text));
    EXPECT_STREQ(moved.GetCStr(), copy.GetCStr());
    EXPECT_NE(moved.GetCStr(), copy.GetCStr());
    EXPECT_EQ(text.GetLength(), 0u); // NOLINT(bugprone-use-after-move): moving empties
    copy = std::move(moved);
    EXPECT_STREQ(copy.GetCStr(), "Grün");
    EXPECT_STREQ(moved.GetCStr(), ""); // NOLINT(bugprone-use-after-move): moving empties
    copy = moved;
    EXPECT_EQ(copy.GetLength(), 0u);

    copy.FromQVString("a\xFFz");
    EXPECT_STREQ(copy.GetCStr(), "a\xEF\xBF\xBDz");
    copy.SetCString(new char[4]{'a', 0, 'c', 0}, 3);
    EXPECT_EQ(std::string(copy.GetCStr(), copy.GetLength()), std::string("a\0c", 3));
    copy.FromQVString("secret");
    copy.SecureClear();
    EXPECT_STREQ(copy.GetCStr(), "");
    copy.SecureClear();
    copy.FromQVString("");
    EXPECT_EQ(copy.GetLength(), 0u);
}

TEST(UniformResourceLocator, SplitsAnything) {
    const struct {
        const char* url;
        int result;
        const char* parts; // scheme|authority|path|user information|host|port
    } rows[] = {
        {"opc.tcp://user@host:4840/path?x", 0, "opc.tcp|user@host:4840|/path?x|user|host|4840"},
        {"mailto:someone", 0, "mailto||someone|||"},
        {"nocolon", 2, "|||||"},
        {"", 1, "|||||"},
        {"a:", 0, "a|||||"},
        {"a:b", 0, "a||b|||"},
        {"a:/", 0, "a||/|||"},
        {"a://", 0, "a|||||"},
        {"a:///p", 0, "a||/p|||"},
        {"://h", 0, "|h|||h|"},
        {"a://h", 0, "a|h|||h|"},
        {"a://h/", 0, "a|h|/||h|"},
        {"a://u:p@h:1:2/x:y@z//w", 0, "a|u:p@h:1:2|/x:y@z//w|u:p|h|1:2"},
        {"a://u@v@h", 0, "a|u@v@h||u|v@h|"},
        {"a://@:/", 0, "a|@:|/|||"},
        {"a://[::1]:80/", 0, "a|[::1]:80|/||[|:1]:80"},
    };
    UniformResourceLocator url;
    for (const auto& row : rows) {
        EXPECT_EQ(url.ParseURL(row.url), row.result) << row.url;
        EXPECT_EQ(url.GetScheme() + "|" + url.GetAuthority() + "|" + url.GetPath() + "|" +
                      url.GetUserInformation() + "|" + url.GetHost() + "|" + url.GetPort(),
                  row.parts)
            << row.url;
    }
    url.ParseURL("jar:file://host/x");
    EXPECT_EQ(url.ParseURL(url.GetPath()), 0) << "a part of the one before";
    EXPECT_EQ(url.GetScheme() + "|" + url.GetHost(), "file|host");
}

} // namespace
