#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
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

TEST(Readme, LinksLeadToFiles) {
    const std::regex link(R"(\]\(([^)#:]+)[^)]*\))");
    for (const char* page : {"README.md", "CONTRIBUTING.md", "CHANGELOG.md", "docs/architecture.md"}) {
        const std::filesystem::path path = std::filesystem::path(QV_SOURCE_DIR) / page;
        const std::string text = Contents(path);
        for (auto match = std::sregex_iterator(text.begin(), text.end(), link);
             match != std::sregex_iterator(); ++match) {
            EXPECT_TRUE(std::filesystem::exists(path.parent_path() / (*match)[1].str()))
                << page << ": " << match->str();
        }
    }
}
