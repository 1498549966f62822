// DecimalComma - while it lives, the C library writes and reads numbers with a comma: "1,5". For code that must not care.
//
// The locale is made on the spot, so the machine needs none installed. Throws when there is no comma in the end. For
// tests without other threads.
#pragma once

class DecimalComma {
public:
    DecimalComma();
    // Back to "C".
    ~DecimalComma();
    DecimalComma(const DecimalComma&) = delete;
    DecimalComma& operator=(const DecimalComma&) = delete;
};
