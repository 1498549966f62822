#include <QVLib/Tls/OpenSSLBIO.h>

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <stdexcept>

namespace {

// An input that tells how often its length was asked, or breaks.
class WatchedInput : public BinaryInputFromReadOnlyData {
public:
    explicit WatchedInput(const char* text)
        : BinaryInputFromReadOnlyData(BinaryStringLengthNotAllowed,
                                      reinterpret_cast<const unsigned char*>(text),
                                      static_cast<unsigned int>(std::strlen(text))) {}
    unsigned int GetLength() const override {
        m_Asked++;
        return BinaryInputFromReadOnlyData::GetLength();
    }
    void Read(void* buffer, unsigned int count) override {
        if (m_bBroken)
            throw std::logic_error("ZLIB error");
        BinaryInputFromReadOnlyData::Read(buffer, count);
    }

    mutable int m_Asked = 0;
    bool m_bBroken = false;
};

class BrokenOutput : public CBinaryOutput {
public:
    BrokenOutput() : CBinaryOutput(BinaryStringLengthNotAllowed) {}
    bool Write(const void*, unsigned int) override {
        if (m_bThrow)
            throw std::runtime_error("broken");
        return false;
    }
    bool m_bThrow = false;
};

} // namespace

TEST(OpenSSLBIO, ReadsWhatIsThereAndAsksItsLengthOnce) {
    WatchedInput input("abcdefgh");
    OpenSSLBIOFromBinaryInput from(&input);
    char buffer[16] = "";
    EXPECT_EQ(BIO_read(from.GetBIO(), buffer, 3), 3);
    EXPECT_EQ(BIO_read(from.GetBIO(), buffer, sizeof buffer), 5);
    EXPECT_EQ(std::string(buffer, 5), "defgh");
    EXPECT_EQ(BIO_read(from.GetBIO(), buffer, sizeof buffer), 0);
    EXPECT_EQ(input.m_Asked, 1);
    EXPECT_STREQ(BIO_method_name(from.GetBIO()), "QVBinaryInput");
    EXPECT_EQ(BIO_method_type(from.GetBIO()), 140);
}

TEST(OpenSSLBIO, ReadsLinesWithinTheBuffer) {
    WatchedInput input("one\ntwo three\n\nend");
    OpenSSLBIOFromBinaryInput from(&input);
    const struct {
        int size;
        const char* text;
    } rows[] = {{1, ""},         {16, "one\n"}, {4, "two"},  {2, " "},
                {16, "three\n"}, {16, "\n"},    {16, "end"}, {16, ""}};
    for (const auto& row : rows) {
        char buffer[17];
        std::memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(BIO_gets(from.GetBIO(), buffer, row.size), static_cast<int>(std::strlen(row.text)));
        EXPECT_STREQ(buffer, row.text);
        EXPECT_EQ(buffer[row.size], '#');
    }
    char untouched = '#';
    EXPECT_EQ(BIO_gets(from.GetBIO(), &untouched, 0), 0);
    EXPECT_EQ(untouched, '#');
}

TEST(OpenSSLBIO, WritesBytesAndTexts) {
    BinaryOutputBuffer output(BinaryStringLengthNotAllowed);
    OpenSSLBIOToBinaryOutput to(&output);
    EXPECT_EQ(BIO_write(to.GetBIO(), "ab\0c", 4), 4);
    EXPECT_EQ(BIO_puts(to.GetBIO(), "text"), 4);
    EXPECT_EQ(BIO_flush(to.GetBIO()), 1);
    const std::unique_ptr<unsigned char[]> bytes(output.ToByteArray());
    EXPECT_EQ(std::string(bytes.get(), bytes.get() + output.GetTotalDataSize()), std::string("ab\0ctext", 8));
    EXPECT_STREQ(BIO_method_name(to.GetBIO()), "QVBinaryOutput");
}

// A stream that breaks must neither throw through OpenSSL nor leave an error that a later log would print.
TEST(OpenSSLBIO, KeepsExceptionsAndControlsToItself) {
    ERR_clear_error();
    WatchedInput input("abc");
    input.m_bBroken = true;
    OpenSSLBIOFromBinaryInput from(&input);
    char buffer[8] = "#";
    EXPECT_EQ(BIO_read(from.GetBIO(), buffer, 3), 0);
    EXPECT_EQ(BIO_gets(from.GetBIO(), buffer, 3), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(BIO_reset(from.GetBIO()), 0);
    EXPECT_EQ(BIO_flush(from.GetBIO()), 1);

    BrokenOutput output;
    OpenSSLBIOToBinaryOutput to(&output);
    EXPECT_EQ(BIO_write(to.GetBIO(), "abc", 3), 0);
    output.m_bThrow = true;
    EXPECT_EQ(BIO_puts(to.GetBIO(), "abc"), 0);
    EXPECT_EQ(ERR_peek_error(), 0u);
}
