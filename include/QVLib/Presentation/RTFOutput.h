// CRTFOutput - styled text as a Rich Text Format document (RTF 1.9), for files and the clipboard.
//
//     CRTFOutput rtf;
//     rtf.SetColour(QVColourRGB(255, 0, 0));
//     rtf.Print("Level too high\n", 15);
//     rtf.TransferToClipboardInterface(clipboard);
//
// The document is 7-bit: what is not ASCII becomes Unicode escapes with "?" for readers that know none. Text begins in
// 12 points, without a colour or a font of its own; a style holds until the next one is set. Colours and fonts are
// numbered in the order in which they are first used.
// The caller's part: names of fonts go into the document as they are, so they must not hold braces, backslashes,
// semicolons or control characters; and of a text's control characters only tabs and line feeds are translated.
// Threads: one thread at a time.
#pragma once

#include <QVLib/Presentation/ColourRGB.h>
#include <QVPlatform/String.h>
#include <vector>

class ClipboardInterface;

class CRTFOutput {
public:
    // UTF-8; `length` in bytes. Malformed bytes print as U+FFFD.
    void Print(const char* text, unsigned int length);
    // `count` code points; those above U+10FFFF print as U+FFFD.
    void Print(const char32_t* text, unsigned int count);

    void SetColour(QVColourRGB colour);
    void SetFont(const qvstring& name);
    // Written in half points, at most 16,383.5 points; a size below 0 or that is no number counts as 0.
    void SetFontSize(float points);
    void SetUnderline(bool on);
    void SetStrikeout(bool on);

    // Replaces `document` by the whole document so far.
    void GenerateRTF(qvstring& document) const;
    // Stores the document as "application/rtf".
    void TransferToClipboardInterface(ClipboardInterface* clipboard) const;

private:
    void AppendCodePoint(int codePoint);
    void AppendUnit(unsigned short unit);
    void AppendSwitch(const char* word, bool on);

    std::vector<qvstring> m_Fonts;
    std::vector<QVColourRGB> m_Colours;
    qvstring m_Body;
    int m_ColourIndex = -1; // none chosen yet
    bool m_bUnderline = false;
    bool m_bStrikeout = false;
    float m_FontSize = 12.0f; // points
};
