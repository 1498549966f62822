// CTextBufferUpdate - coloured lines of text, handed from what makes them to the view that shows them.
//
// Threads: one thread at a time.
#pragma once

#include <QVLib/Presentation/ColourRGB.h>
#include <QVPlatform/String.h>
#include <list>

class CTextBufferUpdate {
public:
    struct Line {
        QVColourRGB m_Colour;
        qvstring m_Text;
    };

    // Adds an empty line, black, which Back() then fills.
    void Append() { m_Lines.emplace_back(); }
    // The last line. There must be one.
    Line& Back() { return m_Lines.back(); }
    std::list<Line>::const_iterator Begin() const { return m_Lines.begin(); }
    std::list<Line>::const_iterator End() const { return m_Lines.end(); }
    void Clear() { m_Lines.clear(); }

private:
    std::list<Line> m_Lines;
};
