// TextEncoding - how text lies in bytes, for the text inputs and outputs that read and write them.
//
// The numbers are stored and passed between programs.
#pragma once

enum TextEncoding : int {
    TextEncodingUTF8 = 0,
    TextEncodingUTF8WithMark = 1, // "mark": starts with a byte-order mark, U+FEFF in the encoding itself
    TextEncodingUTF16LEWithMark = 2,
    TextEncodingUTF16BEWithMark = 3,
    TextEncodingUTF16LE = 4,
    TextEncodingUTF16BE = 5,
};
