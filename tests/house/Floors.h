#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

// The rules of this source tree, judged from its text alone: who may include whom, what is built, what is
// used.
//
// Paths are relative to the root of the tree and use '/'. Faults are sentences that begin with the path they
// are about; no fault means an empty list.

// All C++ sources, headers and CMakeLists.txt of a tree: path to contents.
using Tree = std::map<std::string, std::string>;
using Faults = std::vector<std::string>;

// Reads a tree from disk. Folders that hold no sources of ours (build, hidden ones) are left out.
Tree ReadTree(const std::string& root);

// The floor table: which folder may see which. Folders that the table does not hold (tools, examples,
// benchmarks and the tests of no single subsystem) stand on top of everything.
class Floors {
public:
    // Takes the table out of a Markdown text: the rows under a heading row "| floor | folder | ... | stands
    // on |".
    explicit Floors(const std::string& markdown);

    // The folders of the table, from the lowest.
    const std::vector<std::string>& Folders() const { return m_Folders; }

    // Whether files of one folder may include headers of the other: the folders that it stands on, and all
    // below.
    bool MaySee(const std::string& folder, const std::string& other) const;

    // What is written in the table's last column, in its order.
    std::vector<std::string> StandsOn(const std::string& folder) const;

private:
    std::vector<std::string> m_Folders;
    std::map<std::string, std::vector<std::string>> m_StandsOn;
};

// Judges one line of a file. Returns what is wrong with it, or an empty text; a line that includes nothing is
// right.
std::string JudgeLine(const std::string& file, const std::string& line, const Floors& floors,
                      const Tree& tree);

// Every line of every file.
Faults ForbiddenIncludes(const Tree& tree, const Floors& floors);

// Sources that are not among the built files, and not named by a folder that is a build of its own.
Faults UnbuiltSources(const Tree& tree, const std::set<std::string>& built);

// Headers that no other file includes.
Faults UnusedHeaders(const Tree& tree);

// Subsystems whose CMakeLists.txt names other floors to stand on than the table.
Faults WrongLinkLines(const Tree& tree, const Floors& floors);

// The files of a compile_commands.json that lie below root.
std::set<std::string> FilesInCompileCommands(const std::string& json, const std::string& root);
