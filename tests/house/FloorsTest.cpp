#include "Floors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::string Contents(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

const Floors& TheFloors() {
    static const Floors floors(Contents(QV_SOURCE_DIR "/docs/architecture.md"));
    return floors;
}

const Tree& TheTree() {
    static const Tree tree = ReadTree(QV_SOURCE_DIR);
    return tree;
}

// A tree of headers for the judge to find; only the names matter.
const Tree kHeaders = {
    {"platform/include/QVPlatform/Locks.h", ""},
    {"platform/src/SystemCalls.h", ""},
    {"include/QVLib/TextStreams/TextInput.h", ""},
    {"include/QVLib/BinaryStreams/BinaryInput.h", ""},
    {"include/QVLib/Parsing/ParseToken.h", ""},
    {"include/QVLib/Json/JSONValue.h", ""},
    {"include/QVLib/HistoricTables/HistoricTable.h", ""},
    {"include/QVLib/Tags/TagName.h", ""},
    {"QVLib/HistoricTables/FileNames.h", ""},
    {"tests/Parsing/ParsingTools.h", ""},
    {"tests/support/TemporaryFolder.h", ""},
    {"tools/qv/Options.h", ""},
};

} // namespace

TEST(Floors, IncludeLinesAreJudged) {
    struct Row {
        const char* file;
        const char* line;
        const char* fault; // part of the fault, empty when the line is right
    };
    const Row rows[] = {
        // Down, to the own floor's folder, and no include at all.
        {"QVLib/TextStreams/TextInput.cpp", "#include <QVPlatform/Locks.h>", ""},
        {"QVLib/HistoricTables/HistoricTable.cpp", "#include <QVLib/TextStreams/TextInput.h>", ""},
        {"include/QVLib/Json/JSONValue.h", "  #  include <QVLib/Parsing/ParseToken.h>  // why", ""},
        {"QVLib/Security/Rights.cpp", "#include <QVLib/BinaryStreams/BinaryInput.h>", ""},
        {"QVLib/Presentation/Colour.cpp", "#include <QVLib/Tags/TagName.h>", ""},
        {"QVLib/Tags/TagName.cpp", "// #include <unistd.h>", ""},
        // Up, and sideways, wherever the sources and their tests are.
        {"platform/src/Locks.cpp", "#include <QVLib/TextStreams/TextInput.h>",
         "platform does not stand on TextStreams"},
        {"include/QVLib/TextStreams/TextInput.h", "#include <QVLib/BinaryStreams/BinaryInput.h>",
         "TextStreams does not stand on BinaryStreams"},
        {"QVLib/BinaryStreams/BinaryInput.cpp", "#include <QVLib/Parsing/ParseToken.h>",
         "does not stand on Parsing"},
        {"QVLib/Json/JSONValue.cpp", "#include <QVLib/Tags/TagName.h>", "Json does not stand on Tags"},
        {"tests/Json/JSONValueTest.cpp", "#include <QVLib/BinaryStreams/BinaryInput.h>", "does not stand on"},
        {"tests/support/Doubles.h", "#include <QVLib/Json/JSONValue.h>", ""},
        {"QVLib/Gadgets/Gadget.cpp", "#include <QVPlatform/Locks.h>", "Gadgets is not in the floor table"},
        {"tools/qv/main.cpp", "#include <QVLib/Json/JSONValue.h>", ""},
        {"tools/qv/main.cpp", "#include <QVLib/Json/Missing.h>", "not in the tree"},
        // System headers, and those of other libraries.
        {"QVLib/TextStreams/TextInput.cpp", "#include <cerrno>", ""},
        {"platform/src/Locks.cpp", "#include <pthread.h>", ""},
        {"platform/include/QVPlatform/Locks.h", "#include <pthread.h>",
         "<pthread.h> is a system or foreign header"},
        {"QVLib/TextStreams/TextInput.cpp", "#include <unistd.h>", "<unistd.h> is"},
        {"tests/TextStreams/TextInputTest.cpp", "#include <sys/stat.h>", "<sys/stat.h> is"},
        {"tests/support/FaultFileSystem.cpp", "#include <sys/stat.h>", "<sys/stat.h> is"},
        {"tests/TextStreams/TextInputTest.cpp", "#include <gtest/gtest.h>", ""},
        {"tools/qv/main.cpp", "#include <CLI/CLI.hpp>", ""},
        {"QVLib/Utilities/Guid.cpp", "#include <CLI/CLI.hpp>", "<CLI/CLI.hpp> is"},
        {"QVLib/Utilities/Guid.cpp", "#include GUID_HEADER", "written out"},
        // Headers that are not public.
        {"QVLib/HistoricTables/HistoricTable.cpp", "#include \"FileNames.h\"", ""},
        {"tests/HistoricTables/FileNamesTest.cpp", "#include \"HistoricTables/FileNames.h\"", ""},
        {"QVLib/Json/JSONValue.cpp", "#include \"../HistoricTables/FileNames.h\"", "private"},
        {"tests/Json/JSONValueTest.cpp", "#include \"HistoricTables/FileNames.h\"", "private"},
        {"tests/Json/JSONValueTest.cpp", "#include <support/TemporaryFolder.h>", ""},
        {"fuzz/JsonFuzzer.cpp", "#include <support/TemporaryFolder.h>", ""},
        {"tests/Json/JSONValueTest.cpp", "#include \"Parsing/ParsingTools.h\"", ""},
        {"tests/Tags/TagNameTest.cpp", "#include \"Parsing/ParsingTools.h\"", "private"},
        {"QVLib/Json/JSONValue.cpp", "#include \"../../tests/support/TemporaryFolder.h\"", "private"},
        {"tests/platform/LocksTest.cpp", "#include \"SystemCalls.h\"", ""},
        {"tests/support/FaultSystemCalls.h", "#include <SystemCalls.h>", ""},
        {"tests/Json/JSONValueTest.cpp", "#include \"SystemCalls.h\"", "private"},
        {"tests/tools/OptionsTest.cpp", "#include <Options.h>", ""},
        {"examples/first.cpp", "#include \"../tools/qv/Options.h\"", "private"},
        {"QVLib/Json/JSONValue.cpp", "#include \"../../include/QVLib/Json/JSONValue.h\"", "angle brackets"},
    };
    for (const Row& row : rows) {
        const std::string fault = JudgeLine(row.file, row.line, TheFloors(), kHeaders);
        const bool expected = *row.fault == '\0' ? fault.empty() : fault.find(row.fault) != std::string::npos;
        EXPECT_TRUE(expected) << row.file << ": " << row.line << "\n  judged: " << fault;
    }
}

TEST(Floors, UnbuiltAndUnusedFilesAndWrongLinkLinesAreFound) {
    const Tree tree = {
        {"QVLib/Json/A.cpp", "#include <QVLib/Json/A.h>\n"},
        {"QVLib/Json/B.cpp", ""},
        {"QVLib/Json/CMakeLists.txt", "qv_add_subsystem(Json\n  SOURCES A.cpp B.cpp)\n"},
        {"QVLib/Tls/CMakeLists.txt",
         "qv_add_subsystem(Tls SOURCES S.cpp\n STANDS_ON Parsing BinaryStreams LIBRARIES OpenSSL::SSL)"},
        {"benchmarks/CMakeLists.txt", "qv_add_benchmark(Quick)\n"},
        {"benchmarks/Quick.cpp", ""},
        {"benchmarks/Quicker.cpp", ""},
        {"include/QVLib/Json/A.h", ""},
        {"include/QVLib/Tags/A.h", ""},
    };
    EXPECT_THAT(UnbuiltSources(tree, {"QVLib/Json/A.cpp"}),
                ElementsAre(HasSubstr("QVLib/Json/B.cpp"), HasSubstr("benchmarks/Quicker.cpp")));
    EXPECT_THAT(UnusedHeaders(tree), ElementsAre(HasSubstr("include/QVLib/Tags/A.h")));
    EXPECT_THAT(WrongLinkLines(tree, TheFloors()), ElementsAre(HasSubstr("QVLib/Json/CMakeLists.txt")));
}

// The table must be whole, or everything would be allowed.
TEST(Floors, TableNamesAllFoldersFromTheBottom) {
    ASSERT_THAT(TheFloors().Folders(),
                ElementsAre("platform", "Resources", "TextStreams", "BinaryStreams", "Parsing", "Json",
                            "HistoricTables", "Formatting", "SerialPorts", "Tls", "Tags", "Utilities",
                            "Security", "Presentation"));
    std::vector<std::string> seen;
    for (const std::string& folder : TheFloors().Folders()) {
        EXPECT_THAT(seen, testing::IsSupersetOf(TheFloors().StandsOn(folder))) << folder;
        seen.push_back(folder);
    }
}

TEST(Floors, TreeKeepsThem) {
    ASSERT_GT(TheTree().size(), 50u);
    const std::set<std::string> built =
        FilesInCompileCommands(Contents(QV_BINARY_DIR "/compile_commands.json"), QV_SOURCE_DIR);
    EXPECT_THAT(ForbiddenIncludes(TheTree(), TheFloors()), IsEmpty());
    EXPECT_THAT(UnbuiltSources(TheTree(), built), IsEmpty());
    EXPECT_THAT(UnusedHeaders(TheTree()), IsEmpty());
    EXPECT_THAT(WrongLinkLines(TheTree(), TheFloors()), IsEmpty());
}
