// CBase64 - decodes Base64 text (RFC 4648). CTextOutput::PrintBase64() and BinaryOutputToTextOutput encode.
//
// Strict: groups of four characters, nothing between them, padded to four. A padded group may also stand before the end,
// as in texts that were encoded piece by piece; bits that padding leaves over are not looked at.
// Threads: any.
#pragma once

#include <QVPlatform/String.h>

class CBase64 {
public:
    // Decodes `length` characters into `output`, which has room for `outputSize` bytes; three bytes for every four
    // characters are always enough. False for a length that is no multiple of four, a character that is none of Base64,
    // and too little room. `written` tells how many bytes were decoded, also then.
    static bool DecodeBase64(const char* text, unsigned int length, unsigned char* output,
                             unsigned int outputSize, unsigned int& written);
    static bool DecodeBase64(const qvstring& text, unsigned char* output, unsigned int outputSize,
                             unsigned int& written);
};
