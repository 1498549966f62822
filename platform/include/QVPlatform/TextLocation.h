// CQVTextLocation - where in a text something stands: source name, line and column.
//
// Lines and columns start at 1 and count code points; a tab or a carriage return is one column like any other
// character. Newlines reach the location as code point 10 only.
//
// CQVTextLocationSourceName is the shared, reference-counted name: a location copied into a message keeps the
// name alive after the text's input is gone. The count is atomic. Copying a location over one with the same
// name touches no count, so a location may be assigned for every character read.
#pragma once

#include <QVPlatform/Locks.h>
#include <QVPlatform/String.h>

class CQVTextLocationSourceName {
public:
    // Starts with a count of 0: whoever makes one adds the first reference.
    explicit CQVTextLocationSourceName(const qvstring& name) : m_Name(name) {}

    void AddRef() { m_RefCount.Increment(); }
    // Deletes the name with its last reference.
    void Release() {
        if (m_RefCount.Decrement() == 0)
            delete this;
    }
    const qvstring& GetName() const { return m_Name; }

private:
    ~CQVTextLocationSourceName() = default;

    CQVRefCount m_RefCount;
    qvstring m_Name;
};

class CQVTextLocation {
public:
    CQVTextLocation() = default;
    CQVTextLocation(const CQVTextLocation& other);
    CQVTextLocation(CQVTextLocation&& other) noexcept;
    CQVTextLocation& operator=(const CQVTextLocation& other);
    CQVTextLocation& operator=(CQVTextLocation&& other) noexcept;
    ~CQVTextLocation();

    unsigned int GetLine() const { return m_Line; }
    unsigned int GetColumn() const { return m_Column; }
    // The column counted from 0.
    unsigned int GetPosition() const { return m_Column - 1; }
    void SetLineAndColumn(unsigned int line, unsigned int column) {
        m_Line = line;
        m_Column = column;
    }

    // Back to line 1, column 1; the name is kept.
    void Reset() { SetLineAndColumn(1, 1); }

    // Moves past one code point: 10 to the start of the next line, any other by one column.
    void IncrementByCodePoint(int codePoint) {
        if (codePoint == 10) {
            ++m_Line;
            m_Column = 1;
        } else {
            ++m_Column;
        }
    }
    // Moves past `count` code points none of which is 10.
    void AdvanceColumns(unsigned int count) { m_Column += count; }

    // Takes a reference to `name`, which may be null, and releases the one held before.
    void SetSourceName(CQVTextLocationSourceName* name);
    // The name, borrowed; null when there is none.
    CQVTextLocationSourceName* GetSourceNameRef() const { return m_pSourceName; }

private:
    CQVTextLocationSourceName* m_pSourceName = nullptr;
    unsigned int m_Line = 1;
    unsigned int m_Column = 1;
};

inline CQVTextLocation::CQVTextLocation(const CQVTextLocation& other)
    : m_pSourceName(other.m_pSourceName), m_Line(other.m_Line), m_Column(other.m_Column) {
    if (m_pSourceName)
        m_pSourceName->AddRef();
}

inline CQVTextLocation::CQVTextLocation(CQVTextLocation&& other) noexcept
    : m_pSourceName(other.m_pSourceName), m_Line(other.m_Line), m_Column(other.m_Column) {
    other.m_pSourceName = nullptr;
}

inline CQVTextLocation& CQVTextLocation::operator=(const CQVTextLocation& other) {
    if (m_pSourceName != other.m_pSourceName)
        SetSourceName(other.m_pSourceName);
    m_Line = other.m_Line;
    m_Column = other.m_Column;
    return *this;
}

inline CQVTextLocation& CQVTextLocation::operator=(CQVTextLocation&& other) noexcept {
    return *this = static_cast<const CQVTextLocation&>(other);
}

inline CQVTextLocation::~CQVTextLocation() {
    if (m_pSourceName)
        m_pSourceName->Release();
}
