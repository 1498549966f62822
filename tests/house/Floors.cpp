#include "Floors.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <sstream>

namespace {

// Headers from outside that a folder may include, by the start of their names. Everything else that is not
// standard C++ is the platform's.
struct ForeignHeaders {
    const char* folder;
    const char* prefix;
};
constexpr ForeignHeaders kForeignHeaders[] = {
    {"platform/src/", ""},
    // These ask of the system what the library never does: kill a process, become another user, mount a disk, make a
    // stack small.
    {"tests/support/ChildProcess.cpp", ""},
    {"tests/support/OtherUser.cpp", ""},
    {"tests/support/SmallDisk.cpp", ""},
    {"tests/support/SmallStack.cpp", ""},
    {"QVLib/BinaryStreams/", "zlib.h"},
    {"QVLib/Tls/", "openssl/"},
    {"tests/Tls/", "openssl/"},
    // A program on the library has an event loop and a limit of descriptors of its own, and the server's side of TLS.
    {"examples/plant/", "openssl/"},
    {"examples/plant/", "sys/epoll.h"},
    {"examples/plant/", "sys/eventfd.h"},
    {"examples/plant/", "sys/resource.h"},
    {"examples/plant/", "unistd.h"},
    {"examples/plant/", "CLI/"},
    {"tools/", "CLI/"},
    {"tests/tools/", "CLI/"},
    {"tests/", "gtest/"},
    {"tests/", "gmock/"},
    {"benchmarks/", "benchmark/"},
    {"benchmarks/", "nlohmann/"},
    {"benchmarks/", "rapidjson/"},
    {"benchmarks/", "leveldb/"},
    {"benchmarks/", "re2/"},
    {"benchmarks/", "zlib.h"},
    {"benchmarks/", "openssl/"},
    {"tests/BinaryStreams/", "zlib.h"},
    {"fuzz/", "zlib.h"},
    {"benchmarks/", "fnmatch.h"},
    {"benchmarks/", "sqlite3.h"},
    {"benchmarks/", "unicode/"},
    {"benchmarks/", "fmt/"},
    {"tests/Formatting/", "unicode/"},
};

// Folders that the build under test need not hold: one is switched off for tests, one is a project of its
// own.
constexpr std::array<const char*, 2> kSeparateBuilds = {"benchmarks/", "tests/house/stranger/"};

// What a line includes. The name is empty where a macro stands in its place.
struct Include {
    std::string name;
    bool angled = false;
};

std::optional<Include> ParseInclude(const std::string& line) {
    static const std::regex directive(R"(\s*#\s*include\s*(.*))");
    static const std::regex writtenOut(R"(([<"])([^>"]+)[>"].*)");
    std::smatch rest;
    if (!std::regex_match(line, rest, directive)) {
        return std::nullopt;
    }
    const std::string argument = rest[1];
    std::smatch name;
    if (!std::regex_match(argument, name, writtenOut)) {
        return Include();
    }
    return Include{name[2], name[1] == "<"};
}

bool StartsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

bool EndsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool IsTest(const std::string& path) {
    return StartsWith(path, "tests/") || StartsWith(path, "fuzz/");
}

std::string FolderPart(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        const auto first = part.find_first_not_of(" `");
        parts.push_back(
            first == std::string::npos ? "" : part.substr(first, part.find_last_not_of(" `") + 1 - first));
    }
    return parts;
}

// The folder of the floor table that a path belongs to, or its top folder where the table holds none.
std::string FloorOf(const std::string& path, const Floors& floors) {
    const std::vector<std::string> parts = Split(path, '/');
    const std::size_t index = parts[0] == "include" ? 2 : parts[0] == "QVLib" || parts[0] == "tests" ? 1 : 0;
    if (index >= parts.size()) {
        return parts[0];
    }
    const auto& known = floors.Folders();
    const bool inTable = std::find(known.begin(), known.end(), parts[index]) != known.end();
    return inTable || parts[0] == "include" || parts[0] == "QVLib" ? parts[index] : parts[0];
}

bool IsPublicName(const std::string& name) {
    return StartsWith(name, "QVPlatform/") || StartsWith(name, "QVLib/");
}

// The file of the tree that an include means, or an empty text. Tests also see the shared fixtures and the
// insides of what they test.
std::string Resolve(const std::string& file, const Include& include, const Tree& tree) {
    std::vector<std::string> folders;
    if (include.angled && IsPublicName(include.name)) {
        folders = {StartsWith(include.name, "QVLib/") ? "include/" : "platform/include/"};
    } else {
        if (!include.angled) {
            folders = {FolderPart(file)};
        }
        if (IsTest(file)) {
            folders.insert(folders.end(),
                           {"tests/", "platform/src/", "QVLib/", "tools/qv/", "examples/plant/"});
        }
    }
    for (const std::string& folder : folders) {
        const std::string path =
            std::filesystem::path(folder + include.name).lexically_normal().generic_string();
        if (tree.count(path) != 0) {
            return path;
        }
    }
    return "";
}

// Whether a file may include a header that is not public: those beside it, and for tests the shared fixtures, those of
// their subject, and those of the tests beneath.
bool IsVisible(const std::string& header, const std::string& file, const Floors& floors) {
    if (FolderPart(header) == FolderPart(file)) {
        return true;
    }
    if (StartsWith(header, "tools/")) {
        return StartsWith(file, "tools/") || StartsWith(file, "tests/tools/");
    }
    if (StartsWith(header, "examples/plant/")) {
        return StartsWith(file, "tests/plant/");
    }
    if (StartsWith(header, "tests/")) {
        return IsTest(file) && (StartsWith(header, "tests/support/") ||
                                floors.MaySee(FloorOf(file, floors), FloorOf(header, floors)));
    }
    const bool isFixture = StartsWith(file, "tests/support/") && StartsWith(header, "platform/");
    return isFixture || (IsTest(file) && FloorOf(header, floors) == FloorOf(file, floors));
}

std::string JudgeForeign(const std::string& file, const std::string& name) {
    if (name.find_first_of("./") == std::string::npos) {
        return "";
    }
    for (const ForeignHeaders& allowed : kForeignHeaders) {
        if (StartsWith(file, allowed.folder) && StartsWith(name, allowed.prefix)) {
            return "";
        }
    }
    return "<" + name + "> is a system or foreign header, which only the platform's sources may include";
}

std::string JudgeArrow(const std::string& file, const std::string& target, const Floors& floors) {
    const std::string from = FloorOf(file, floors);
    const bool isSubsystem = StartsWith(file, "QVLib/") || StartsWith(file, "include/");
    if (isSubsystem && floors.StandsOn(from).empty()) {
        return from + " is not in the floor table";
    }
    const std::string to = FloorOf(target, floors);
    return floors.MaySee(from, to) ? "" : from + " does not stand on " + to;
}

std::string JudgePrivate(const std::string& file, const std::string& target, const Floors& floors) {
    if (StartsWith(target, "include/") || StartsWith(target, "platform/include/")) {
        return target + " is a public header, to be included in angle brackets";
    }
    return IsVisible(target, file, floors) ? "" : target + " is private to its folder";
}

bool IsSource(const std::string& path) {
    return EndsWith(path, ".cpp") || EndsWith(path, ".cc") || EndsWith(path, ".c");
}

bool IsHeader(const std::string& path) {
    return EndsWith(path, ".h") || EndsWith(path, ".hpp");
}

template<class Visit>
void ForEachLine(const std::string& text, Visit visit) {
    std::istringstream stream(text);
    std::string line;
    for (int number = 1; std::getline(stream, line); number++) {
        visit(number, line);
    }
}

} // namespace

Tree ReadTree(const std::string& root) {
    namespace fs = std::filesystem;
    Tree tree;
    for (auto entry = fs::recursive_directory_iterator(root); entry != fs::recursive_directory_iterator();
         ++entry) {
        const std::string name = entry->path().filename().string();
        if (entry->is_directory()) {
            if (name[0] == '.' || (entry.depth() == 0 && name == "build")) {
                entry.disable_recursion_pending();
            }
            continue;
        }
        if (IsSource(name) || IsHeader(name) || name == "CMakeLists.txt") {
            std::ifstream stream(entry->path(), std::ios::binary);
            tree[fs::relative(entry->path(), root).generic_string()] =
                std::string(std::istreambuf_iterator<char>(stream), {});
        }
    }
    return tree;
}

Floors::Floors(const std::string& markdown) {
    bool inTable = false;
    ForEachLine(markdown, [&](int, const std::string& line) {
        const std::vector<std::string> cells = Split(line, '|');
        if (cells.size() < 5 || StartsWith(cells[1], "-")) {
            inTable = inTable && cells.size() >= 5;
        } else if (cells[1] == "floor" && cells[2] == "folder") {
            inTable = true;
        } else if (inTable) {
            m_Folders.push_back(cells[2]);
            m_StandsOn[cells[2]] =
                cells[2] == "platform" ? std::vector<std::string>() : Split(cells[cells.size() - 1], ',');
        }
    });
}

bool Floors::MaySee(const std::string& folder, const std::string& other) const {
    const auto found = m_StandsOn.find(folder);
    if (folder == other || found == m_StandsOn.end()) {
        // On top of everything, as long as it is a folder of the table or the table does not know the asker.
        return m_StandsOn.count(other) != 0;
    }
    return std::any_of(found->second.begin(), found->second.end(),
                       [&](const std::string& below) { return MaySee(below, other); });
}

std::vector<std::string> Floors::StandsOn(const std::string& folder) const {
    const auto found = m_StandsOn.find(folder);
    return found == m_StandsOn.end() ? std::vector<std::string>() : found->second;
}

std::string JudgeLine(const std::string& file, const std::string& line, const Floors& floors,
                      const Tree& tree) {
    const std::optional<Include> include = ParseInclude(line);
    if (!include) {
        return "";
    }
    if (include->name.empty()) {
        return "what is included must be written out";
    }
    const std::string target = Resolve(file, *include, tree);
    const bool isPublic = include->angled && IsPublicName(include->name);
    if (target.empty()) {
        return include->angled && !isPublic ? JudgeForeign(file, include->name)
                                            : include->name + " is not in the tree";
    }
    return isPublic ? JudgeArrow(file, target, floors) : JudgePrivate(file, target, floors);
}

Faults ForbiddenIncludes(const Tree& tree, const Floors& floors) {
    Faults faults;
    for (const auto& [file, text] : tree) {
        if (!IsSource(file) && !IsHeader(file)) {
            continue;
        }
        ForEachLine(text, [&, &path = file](int number, const std::string& line) {
            const std::string fault = JudgeLine(path, line, floors, tree);
            if (!fault.empty()) {
                faults.push_back(path + ":" + std::to_string(number) + ": " + fault);
            }
        });
    }
    return faults;
}

Faults UnbuiltSources(const Tree& tree, const std::set<std::string>& built) {
    Faults faults;
    for (const auto& [file, text] : tree) {
        if (!IsSource(file) || built.count(file) != 0) {
            continue;
        }
        const std::string folder = FolderPart(file);
        const auto list = tree.find(folder + "CMakeLists.txt");
        const bool separate =
            std::find(kSeparateBuilds.begin(), kSeparateBuilds.end(), folder) != kSeparateBuilds.end();
        const std::string stem = std::filesystem::path(file).stem().string();
        if (!separate || list == tree.end() ||
            !std::regex_search(list->second, std::regex("\\b" + stem + "\\b"))) {
            faults.push_back(file + ": no target builds it");
        }
    }
    return faults;
}

Faults UnusedHeaders(const Tree& tree) {
    std::set<std::string> used;
    for (const auto& [file, text] : tree) {
        ForEachLine(text, [&, &path = file](int, const std::string& line) {
            if (const std::optional<Include> include = ParseInclude(line)) {
                used.insert(Resolve(path, *include, tree));
            }
        });
    }
    Faults faults;
    for (const auto& [file, text] : tree) {
        if (IsHeader(file) && used.count(file) == 0) {
            faults.push_back(file + ": nobody includes it");
        }
    }
    return faults;
}

Faults WrongLinkLines(const Tree& tree, const Floors& floors) {
    const std::regex list(
        R"(qv_add_subsystem\((\w+)[^)]*?(?:STANDS_ON((?:\s+\w+)+?))?\s*(?:LIBRARIES[^)]*)?\))");
    Faults faults;
    for (const auto& [file, text] : tree) {
        std::smatch match;
        if (!StartsWith(file, "QVLib/") || !std::regex_search(text, match, list)) {
            continue;
        }
        const std::string name = match[1];
        std::istringstream words(match[2].str());
        const std::multiset<std::string> linked{std::istream_iterator<std::string>(words), {}};
        std::multiset<std::string> allowed;
        for (const std::string& folder : floors.StandsOn(name)) {
            if (folder != "platform") {
                allowed.insert(folder);
            }
        }
        if (FolderPart(file) != "QVLib/" + name + "/" || linked != allowed) {
            faults.push_back(file + ": its name or what it stands on differs from the floor table");
        }
    }
    return faults;
}

std::set<std::string> FilesInCompileCommands(const std::string& json, const std::string& root) {
    const std::regex file(R"re("file":\s*"([^"]+)")re");
    std::set<std::string> files;
    for (auto match = std::sregex_iterator(json.begin(), json.end(), file); match != std::sregex_iterator();
         ++match) {
        const std::string path = (*match)[1];
        if (StartsWith(path, root + "/")) {
            files.insert(path.substr(root.size() + 1));
        }
    }
    return files;
}
