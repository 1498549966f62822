#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace {

std::string Contents(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace

// The README's first program is the example that the tests build and run, to the letter.
TEST(Readme, FirstProgramIsTheExample) {
    const std::string readme = Contents(QV_SOURCE_DIR "/README.md");
    const std::string fence = "```cpp\n";
    const auto start = readme.find(fence);
    ASSERT_NE(start, std::string::npos);
    const auto end = readme.find("```", start + fence.size());
    EXPECT_EQ(readme.substr(start + fence.size(), end - start - fence.size()),
              Contents(QV_SOURCE_DIR "/examples/record_and_read.cpp"));
}
