#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

namespace {

std::string Contents(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// The pages for those who use the library or change it.
std::vector<std::filesystem::path> Pages() {
    const std::filesystem::path root = QV_SOURCE_DIR;
    std::vector<std::filesystem::path> pages = {root / "README.md", root / "CONTRIBUTING.md",
                                                root / "CHANGELOG.md", root / "platform/README.md"};
    for (const auto& entry : std::filesystem::directory_iterator(root / "docs")) {
        if (entry.path().extension() == ".md")
            pages.push_back(entry.path());
    }
    for (const auto& entry : std::filesystem::directory_iterator(root / "QVLib")) {
        if (entry.is_directory())
            pages.push_back(entry.path() / "README.md");
    }
    return pages;
}

std::string WithoutIndent(const std::string& text) {
    return std::regex_replace("\n" + text, std::regex("\n +"), "\n");
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
    for (const std::filesystem::path& path : Pages()) {
        const std::string text = Contents(path);
        for (auto match = std::sregex_iterator(text.begin(), text.end(), link);
             match != std::sregex_iterator(); ++match) {
            EXPECT_TRUE(std::filesystem::exists(path.parent_path() / (*match)[1].str()))
                << path << ": " << match->str();
        }
    }
}

// The C++ that a page shows is part of an example, however far it is indented there.
TEST(Readme, CodeOnPagesIsInTheExamples) {
    std::string examples;
    for (const auto& file : std::filesystem::directory_iterator(QV_SOURCE_DIR "/examples")) {
        if (file.path().extension() == ".cpp")
            examples += WithoutIndent(Contents(file.path()));
    }
    const std::regex block("```cpp\n([^`]*)```");
    int blocks = 0;
    for (const std::filesystem::path& path : Pages()) {
        const std::string text = Contents(path);
        for (auto match = std::sregex_iterator(text.begin(), text.end(), block);
             match != std::sregex_iterator(); ++match, ++blocks)
            EXPECT_NE(examples.find(WithoutIndent((*match)[1])), std::string::npos) << path << ":\n"
                                                                                    << (*match)[1];
    }
    EXPECT_GT(blocks, 20);
}
