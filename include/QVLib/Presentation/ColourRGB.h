// QVColourRGB - a colour as one 32-bit word: red in bits 0 to 7, green in 8 to 15, blue in 16 to 23, alpha in 24 to 31.
//
// Alpha is carried, compared and stored, and nothing here reads it; colours made of three components have alpha 0.
// In binary streams: four bytes, red, green, blue, alpha.
// Threads: a value.
#pragma once

class CBinaryInput;
class CBinaryOutput;

class QVColourRGB {
public:
    static const QVColourRGB Black;
    static const QVColourRGB White;

    // All 0: black.
    constexpr QVColourRGB() = default;
    // Components from 0 to 255; greater ones count as 255.
    constexpr QVColourRGB(unsigned int red, unsigned int green, unsigned int blue, unsigned int alpha = 0)
        : m_Word(Saturate(red) | Saturate(green) << 8 | Saturate(blue) << 16 | Saturate(alpha) << 24) {}

    constexpr unsigned int GetRed() const { return m_Word & 0xFF; }
    constexpr unsigned int GetGreen() const { return m_Word >> 8 & 0xFF; }
    constexpr unsigned int GetBlue() const { return m_Word >> 16 & 0xFF; }
    constexpr unsigned int GetAlpha() const { return m_Word >> 24; }
    // The whole word.
    constexpr unsigned int GetRGB() const { return m_Word; }
    constexpr void SetRGB(unsigned int word) { m_Word = word; }
    constexpr void SetGreyShade(unsigned int shade) { *this = QVColourRGB(shade, shade, shade); }

    // How bright it looks, 0 to 254, by the weights of ITU-R BT.709.
    constexpr unsigned int GetLuminance() const {
        return 213 * GetRed() / 1000 + 715 * GetGreen() / 1000 + 72 * GetBlue() / 1000;
    }
    // Black or white, whichever can be read on this colour.
    QVColourRGB GetContrastColour() const;
    // Mixes in `percent` of another colour, which gives a colour without alpha. From 100 it becomes the other one, alpha
    // included; up to 0 it stays as it is.
    void InterpolateWith(int percent, QVColourRGB other);

    constexpr bool operator==(const QVColourRGB&) const = default;

private:
    static constexpr unsigned int Saturate(unsigned int component) {
        return component < 255 ? component : 255;
    }

    unsigned int m_Word = 0;
};

inline constexpr QVColourRGB QVColourRGB::Black{0, 0, 0};
inline constexpr QVColourRGB QVColourRGB::White{255, 255, 255};

CBinaryOutput& operator<<(CBinaryOutput& out, const QVColourRGB& colour);
// Throws CBinaryInput::EOFException, and leaves the colour as it was, when there are fewer than four bytes.
CBinaryInput& operator>>(CBinaryInput& in, QVColourRGB& colour);
