// TextInputFromParseTokens - reads tokens again as text, for a second parser.
//
//     TextInputFromParseTokens input;
//     for (const CParseToken& token : tokens)
//         input.AddToken(token);
//     InnerParser parser(&input, log); // its messages point to where the tokens stand
//
// The texts of the tokens follow each other as if nothing had been between them; the location of each code point is where
// it stands in the text that the tokens came from, so it jumps from one token to the next.
// Ownership: the tokens are borrowed and must outlive the input.
// Offsets:   Tell() counts bytes over all pieces; -1 when all was read. A negative offset is the end for Seek(), too.
// Cost:      Seek() walks over the pieces between where it stands and where it goes.
// Threads:   one thread at a time.
#pragma once

#include <QVLib/TextStreams/TextInput.h>
#include <list>

class CParseToken;

class TextInputFromParseTokens : public CTextInput {
public:
    TextInputFromParseTokens() = default;

    // Adds the whole text of a token, or `length` bytes of it from `offset` on, as far as there are so many. Nothing is
    // added for an empty piece. If all that was there has been read, or there was nothing, reading begins (again) at the
    // first piece.
    void AddToken(const CParseToken& token);
    void AddToken(const CParseToken& token, unsigned int offset, unsigned int length);

    long long Tell() const override;
    void Seek(long long offset) override;
    bool ReadNextCodePoint(int& codePoint) override;
    void IncrementPosition(int codePoint) override;

private:
    // A piece of a token's text.
    struct TokenInfo {
        const CParseToken* m_pToken;
        unsigned int m_Offset;
        unsigned int m_Length;
        long long m_Position; // how much lies before it
        CQVTextLocation m_Location;
    };

    std::list<TokenInfo> m_Pieces;
    std::list<TokenInfo>::const_iterator m_Current = m_Pieces.end();
    unsigned int m_OffsetInPiece = 0;
};
