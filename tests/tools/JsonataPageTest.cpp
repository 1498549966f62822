// The examples in docs/jsonata.md, run as a reader would run them.
#include "QvProgram.h"

#include <fstream>
#include <map>

namespace {

using Example = std::map<std::string, std::string>;

// The examples of the page's blocks: "name: text" on each line, and an empty line between two examples.
std::vector<Example> ReadExamples() {
    std::ifstream page(QV_SOURCE_DIR "/docs/jsonata.md");
    std::vector<Example> examples;
    bool bInBlock = false;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("```")) {
            bInBlock = line == "```jsonata";
            line.clear();
        }
        if (!bInBlock)
            continue;
        if (line.empty()) {
            examples.emplace_back();
            continue;
        }
        const std::size_t colon = line.find(':');
        const std::size_t text = line.find_first_not_of(' ', colon + 1);
        examples.back()[line.substr(0, colon)] = line.substr(text);
    }
    return examples;
}

std::string Quote(const std::string& text) {
    std::string quoted = "'";
    for (const char character : text)
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    return quoted + "'";
}

class JsonataPage : public QvProgram {};

} // namespace

TEST_F(JsonataPage, ExamplesAreTrue) {
    const std::vector<Example> examples = ReadExamples();
    EXPECT_GT(examples.size(), 80u);
    for (const Example& example : examples) {
        const std::string& expression = example.at("expression");
        SCOPED_TRACE(expression);
        if (const auto printed = example.find("printed"); printed != example.end()) {
            EXPECT_EQ(Do("json print -- " + Quote(expression)), printed->second + "\n");
            continue;
        }
        const bool bValue = example.at("result") != "no value";
        const bool bMessage = example.contains("message");
        m_Folder.Write("in", example.at("input"));
        const Result result = Run("json eval -- " + Quote(expression) + " in");
        EXPECT_EQ(result.m_Out, bValue ? example.at("result") + "\n" : "");
        EXPECT_EQ(result.m_Error.substr(0, result.m_Error.find('\n')), bMessage ? example.at("message") : "");
        EXPECT_EQ(result.m_ExitCode, bValue && !bMessage ? 0 : 1);
        for (const auto& [name, text] : example)
            EXPECT_TRUE(name == "expression" || name == "input" || name == "result" || name == "message" ||
                        name == "reference")
                << name;
    }
}
