// JSONParseContext - a parse context whose tokens are those of JSON.
//
// Strings and real numbers are one token each, and true, false and null have types of their own (in any case
// of their letters). There are no comments. A sign is a token of its own.
//
// Threads: one thread at a time, for one parse of one input.
#pragma once

#include <QVLib/Parsing/ParseContext.h>

enum JSONTokenType : int {
    JSONTokenString = 150, // in double quotes, quotes and escapes as written
    JSONTokenTrue = 151,
    JSONTokenFalse = 152,
    JSONTokenNull = 153,
    JSONTokenNumber = 154, // digits, then optionally a fraction and an exponent
};

class JSONParseContext : public CParseContext {
public:
    JSONParseContext(CTextInput* input, COutputLog* log) : CParseContext(input, log) {}

    // Reads the next token that is no blank and no line end; returns its type. A string that the text ends in
    // is marked as not terminated.
    int GetNextJSONToken(CParseToken& token);

    // The content of a string token, escapes resolved. A \u escape takes up to four digits and is a character
    // of its own: the halves of a surrogate pair are not joined. An unknown escape is the character behind
    // it.
    static void TranslateJSONStringToken(const CParseToken& token, qvstring& text);

    // The value of a number token, whatever the process's locale: the nearest double, infinity past its
    // range.
    static double NumberFromToken(const CParseToken& token);

private:
    friend class JSONParser;
    friend class JSONataExpr;

    void ExtendNumber(CParseToken& token);
    void ExtendString(CParseToken& token);

    // Tokens that are used again, because a new one costs a hold on the source's name and the memory of its
    // text.
    CParseToken m_Piece; // of a number or a string
    CParseToken m_Ahead; // behind what an expression has parsed so far
};
