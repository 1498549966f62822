// TagFile - the names of a table's tags: tags.txt, beside the table's files.
//
// A line is "number name unit", separated by blanks; the unit may be missing and may hold blanks. Empty lines
// and lines that start with '#' mean nothing and are kept. A name has no blanks and is not only digits, so
// that it is never taken for a number. People may edit the file while nothing changes the table.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class TagFile {
public:
    struct Tag {
        std::uint32_t m_Number = 0;
        std::string m_Name;
        std::string m_Unit;
    };

    TagFile() = default;
    TagFile(const TagFile&) = delete;
    TagFile& operator=(const TagFile&) = delete;

    // Reads the file of a table's folder; without one there are no names. Each line that cannot be used gives
    // a problem "FILE:LINE: ..." and no name. Throws a ToolError when the file cannot be read.
    void Load(const std::string& folder, std::vector<std::string>& problems);
    // Writes the new tags behind the old text, in one step that a crash cannot tear. Without new tags nothing
    // is written. Throws a ToolError when that fails.
    void Save();

    // Null when there is none.
    const Tag* FindName(std::string_view name) const;
    const Tag* FindNumber(unsigned long long number) const;
    // Gives a new name the next free number; the file changes with Save().
    const Tag& Add(std::string_view name, std::string_view unit);
    // Keeps a number from being given to a new name: one that records use without a name.
    void Reserve(unsigned long long number);
    // Empty for a name that a tag can have, else what is wrong with it.
    static std::string CheckName(std::string_view name);

private:
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };

    std::string ParseLine(std::string_view line);
    const Tag& Insert(Tag tag);

    std::string m_Path;
    std::string m_Text; // of the file, and what Save() will append to it
    bool m_bChanged = false;
    unsigned long long m_NextNumber = 1;
    std::deque<Tag> m_Tags; // stays in place
    std::unordered_map<std::string_view, const Tag*, Hash> m_ByName;
    std::unordered_map<unsigned long long, const Tag*> m_ByNumber;
};
