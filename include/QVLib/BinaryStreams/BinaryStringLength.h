// BinaryStringLength - how a binary stream encodes the length of a string.
//
// Chosen per stream, by its constructor, for the stream's whole life; reader and writer must agree on it. The
// values are stored by other programs: never renumber them.
#pragma once

enum BinaryStringLength {
    // The stream carries no strings; a string operation on it is a programming error (an assertion).
    BinaryStringLengthNotAllowed = 0,
    // As one character of WriteUTFCharacter(), 1 to 6 bytes. The choice for files.
    BinaryStringLengthUTF8Character = 1,
    // As an integer of seven bits per byte, see Write7BitEncodedInt().
    BinaryStringLength7BitEncodedInt = 2,
};
