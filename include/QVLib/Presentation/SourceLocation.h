// CSourceLocation - where a message points: a module, what is asked of it, and a place in its text.
//
//     Plant/Tank1?File=a.txt(12,5-9)
//     `-------------------'  module name with query; the query is "File=a.txt"
//
// Positions: (line), (line,column), (line,column-column) or (line,column-line,column), counted from 1. A location without
//            one stands for the whole module; its four numbers are 1.
// Queries:   items "key=value" or "key" between '&'. The first of two items with the same key counts.
// Hostile text: numbers too large for 32 bits are the greatest, and where a digit is missing the number is 0.
// Threads:   one thread at a time.
#pragma once

#include <QVPlatform/String.h>
#include <map>

class CErrorLocationTextRange;
class CQVTextLocation;
class CTagName;

class CSourceLocation {
public:
    // What ParseLocation() gives for the position of a colon that is not there.
    static constexpr unsigned int NoColon = 0xFFFFFFFF;

    CSourceLocation() = default;
    // A module, with or without a query.
    explicit CSourceLocation(const qvstring& moduleName);
    // A file of a module: the query "File=..." with the name as it is.
    CSourceLocation(const qvstring& moduleName, const qvstring& fileName);
    // A tag; a '?' in its name belongs to the name.
    explicit CSourceLocation(const CTagName& tag);

    void ClearLocation() { *this = CSourceLocation(); }
    // The place of something that was read; the source's name is the module's, with its query.
    void Init(const CErrorLocationTextRange& range);
    void Init(const CQVTextLocation& begin, const CQVTextLocation& end);
    void Init(const CQVTextLocation& location);

    // Reads the location in front of the ':' of a message line, or a line that is nothing else. The colon is looked for
    // from the fourth byte on, so that a drive letter is not cut off; `colonPosition` is its index or NoColon. False
    // when the line is empty, or has no location in front; the object is then to be thrown away.
    bool ParseLocation(const qvstring& line, unsigned int& colonPosition);
    // Reads a position without its "(", as far as it goes.
    void ParsePosition(const char* text);
    // Replaces `text` by the location in its one canonical form, items of the query in the order of their keys.
    void FormatLocation(qvstring& text) const;
    // Moves the position back, from a text to a piece embedded in it that begins `lines` and `columns` behind its start:
    // columns only move on the line where the range begins. Positions stay within 0 and the greatest; a location
    // without a position stays as it is.
    void AdjustPosition(int lines, int columns);

    // The location as it stood in the line that was parsed last.
    const qvstring& GetLocationText() const { return m_LocationText; }
    const qvstring& GetModuleNameWithQuery() const { return m_ModuleNameWithQuery; }
    const qvstring& GetModuleName() const { return m_ModuleName; }
    // Behind the first '?'.
    const qvstring& GetQuery() const { return m_Query; }
    // Null when there is no such key; empty when the item has no value.
    const qvstring* GetQueryValue(const char* key) const;

    bool HasPosition() const { return m_bHasPosition; }
    unsigned int GetStartLine() const { return m_StartLine; }
    unsigned int GetStartColumn() const { return m_StartColumn; }
    unsigned int GetEndLine() const { return m_EndLine; }
    // Behind the last character.
    unsigned int GetEndColumn() const { return m_EndColumn; }

private:
    void ExtractQueryFromModuleName();

    qvstring m_LocationText;
    qvstring m_ModuleNameWithQuery;
    qvstring m_ModuleName;
    qvstring m_Query;
    std::map<qvstring, qvstring> m_QueryValues;
    bool m_bHasPosition = false;
    unsigned int m_StartLine = 1;
    unsigned int m_StartColumn = 1;
    unsigned int m_EndLine = 1;
    unsigned int m_EndColumn = 1;
};
