// CColourValue - a colour as people write it, which prints back the way it was written.
//
//     CColourValue colour;
//     if (colour.ParseText("#f80"))
//         colour.PrintColourValue(out); // #f80
//
// Syntax:  AliceBlue           a name, in any case (NamedColour.h)
//          #f80, #ff8800       hexadecimal digits, one or two for each of red, green and blue
//          rgb(255, 50%, 0)    numbers or percentages, with or without commas; fractions are cut off
//          65280               the whole word of QVColourRGB in decimal: 255 is red
//          A component above 255 or 100 % counts as 255, and a word above 32 bits as 4294967295.
// Errors:  Parse() logs one message with its place and leaves the colour as it was.
// Equality: the word and the form; so "red" and "#ff0000" differ.
// Threads: one thread at a time.
#pragma once

#include <QVLib/Presentation/ColourRGB.h>
#include <QVLib/Presentation/NamedColour.h>

class CParseContext;
class CParseToken;
class CTextInput;
class CTextOutput;

// How a colour was written. The values are stored.
enum ColourValueForm : int {
    ColourValueNone = 0,
    ColourValueShortHex = 1,
    ColourValueRGB = 2,
    ColourValueNamed = 3,
};

class CColourValue {
public:
    // Black, of no form.
    CColourValue() = default;
    explicit CColourValue(QVColourRGB colour) : m_Colour(colour), m_Form(ColourValueRGB) {}

    bool operator==(const CColourValue& other) const {
        return m_Colour == other.m_Colour && m_Form == other.m_Form;
    }

    const QVColourRGB& GetColour() const { return m_Colour; }
    // A ColourValueForm, or another number up to 255 when such a one was loaded.
    int GetForm() const { return m_Form; }
    // Null unless the form is ColourValueNamed.
    const NamedColour* GetNamedColour() const { return m_pNamedColour; }

    void SetRGBValue(QVColourRGB colour) { *this = CColourValue(colour); }
    // An entry of the table, not null.
    void SetNamedColour(const NamedColour* colour);

    // Reads one colour. Of "rgb(...)" the closing parenthesis is left for the caller.
    bool Parse(CParseContext& context);
    // The same for a text of its own; what is wrong is not told, and what is behind the colour not looked at.
    bool ParseText(const char* text, unsigned int length);
    bool ParseText(const qvstring& text);
    bool ParseText(CTextInput& input);
    // The name, "#rgb" for the short form, or "#rrggbb". Alpha is not printed.
    void PrintColourValue(CTextOutput& out) const;

    // One byte for the form, then the name (string) or the colour (4 bytes). A name that is not known any more loads as
    // black in the short form. Data that end early throw CBinaryInput::EOFException.
    void SaveColourValue(CBinaryOutput& out) const;
    void LoadColourValue(CBinaryInput& in);
    // The colour alone.
    void SaveRGBValue(CBinaryOutput& out) const;
    void LoadRGBValue(CBinaryInput& in);

    // Sets `result` to half this colour and half the other.
    void InterpolateColour(const CColourValue& other, CColourValue& result) const;

    // The table of named colours.

    // Null when there is no such name.
    static const NamedColour* FindNamedColour(const qvstring& name);
    static int GetNamedColourCount();
    // Null for an index outside 0 to count - 1.
    static const NamedColour* GetNamedColourFromIndex(int index);
    // -1 for what is no entry of the table.
    static int GetIndexFromNamedColour(const NamedColour* colour);
    // "Unknown" for a group that is none.
    static const char* GetColourGroupName(ColourGroup group);
    // False when the table is not in order, so that a name might not be found.
    static bool CheckNamedColourTable();

private:
    bool ParseHexadecimal(CParseContext& context, CParseToken& token);
    bool ParseFunction(CParseContext& context);
    bool ParseName(CParseContext& context, const CParseToken& token);

    QVColourRGB m_Colour;
    int m_Form = ColourValueNone;
    const NamedColour* m_pNamedColour = nullptr;
};
