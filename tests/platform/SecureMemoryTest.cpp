#include <QVPlatform/SecureMemory.h>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <utility>

// Every array of this program passes through here, so the tests see what a freed block still held.
namespace {

constexpr char Secret[] = "correct horse battery staple";
constexpr size_t HeaderSize = alignof(std::max_align_t);
int g_BlocksFreedWithSecret = 0;

void InspectAndFree(void* block) {
    if (!block)
        return;
    char* const start = static_cast<char*>(block) - HeaderSize;
    size_t size;
    memcpy(&size, start, sizeof size);
    const char* const bytes = static_cast<char*>(block);
    // Half of it is enough: a block that grows is freed before it holds the whole.
    if (std::search(bytes, bytes + size, Secret, Secret + 14) != bytes + size)
        ++g_BlocksFreedWithSecret;
    free(start);
}

} // namespace

void* operator new[](size_t size) {
    char* const start = static_cast<char*>(calloc(1, size + HeaderSize));
    if (!start)
        throw std::bad_alloc();
    memcpy(start, &size, sizeof size);
    return start + HeaderSize;
}
void operator delete[](void* block) noexcept {
    InspectAndFree(block);
}
void operator delete[](void* block, size_t) noexcept {
    InspectAndFree(block);
}

namespace {

TEST(SecureString, LeavesNoSecretInFreedMemory) {
    g_BlocksFreedWithSecret = 0;
    char* const careless = new char[64];
    memcpy(careless, Secret, sizeof Secret);
    delete[] careless;
    ASSERT_EQ(g_BlocksFreedWithSecret, 1) << "the probe sees nothing";

    g_BlocksFreedWithSecret = 0;
    {
        CQVSecureWString grown;
        for (int round = 0; round < 100; ++round)
            for (const char* byte = Secret; *byte; ++byte)
                grown.Append(*byte);
        CQVSecureWString assigned("before");
        assigned = Secret;
        assigned = "other";
        CQVSecureWString copied(Secret);
        copied = grown;
        copied.Clear();
        CQVSecureWString moved(Secret);
        moved = std::move(grown);
        EXPECT_EQ(moved.Length(), 100 * strlen(Secret));
    }
    EXPECT_EQ(g_BlocksFreedWithSecret, 0);
}

TEST(SecureString, HoldsText) {
    CQVSecureWString text;
    EXPECT_STREQ(text.Get(), "");
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_TRUE(CQVSecureWString(nullptr).IsEmpty());

    std::string expected;
    for (int i = 0; i < 300; ++i) {
        text.Append(static_cast<char>('a' + i % 26));
        expected += static_cast<char>('a' + i % 26);
        ASSERT_EQ(text.Get(), expected);
        ASSERT_EQ(text.Length(), expected.size());
    }
    text = text.Get() + 290; // a part of itself
    EXPECT_STREQ(text.Get(), expected.c_str() + 290);

    CQVSecureWString copy(text);
    text.Append('!');
    EXPECT_STREQ(copy.Get(), expected.c_str() + 290);
    const CQVSecureWString taken(std::move(copy));
    EXPECT_TRUE(copy.IsEmpty());
    copy = taken;
    EXPECT_STREQ(copy.Get(), taken.Get());
    copy.Clear();
    EXPECT_STREQ(copy.Get(), "");
}

TEST(RandomGenerator, FillsAndClearsExactlyWhatIsAsked) {
    // Each byte of the asked part differs from 0 in some round (one that never does: 2 to the power of -512).
    std::array<unsigned char, 33> bytes{}, seen{};
    for (int round = 0; round < 64; ++round) {
        ASSERT_TRUE(QVRandomGenerator::GetRandomBytes(bytes.data(), 32));
        for (size_t i = 0; i < bytes.size(); ++i)
            seen[i] |= bytes[i];
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 0), 1);
    EXPECT_EQ(bytes[32], 0);
    bytes.fill(0x55);
    QVRandomGenerator::ClearMemory(bytes.data(), 32);
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), 0), 32);
    EXPECT_EQ(bytes[32], 0x55);
}

} // namespace
