#include <QVLib/BinaryStreams/BinaryInput.h>
#include <QVLib/BinaryStreams/BinaryOutput.h>
#include <QVLib/Presentation/ColourRGB.h>

QVColourRGB QVColourRGB::GetContrastColour() const {
    return GetLuminance() >= 128 ? Black : White;
}

void QVColourRGB::InterpolateWith(int percent, QVColourRGB other) {
    if (percent >= 100) {
        *this = other;
    } else if (percent > 0) {
        const unsigned int part = static_cast<unsigned int>(percent);
        const auto mix = [part](unsigned int own, unsigned int others) {
            return ((100 - part) * own + part * others) / 100;
        };
        *this = QVColourRGB(mix(GetRed(), other.GetRed()), mix(GetGreen(), other.GetGreen()),
                            mix(GetBlue(), other.GetBlue()));
    }
}

CBinaryOutput& operator<<(CBinaryOutput& out, const QVColourRGB& colour) {
    return out << colour.GetRGB();
}

CBinaryInput& operator>>(CBinaryInput& in, QVColourRGB& colour) {
    unsigned int word;
    in >> word;
    colour.SetRGB(word);
    return in;
}
