// Reads "name = number" lines and reports each fault where it is. Every kind of newline counts as one, and
// columns count characters, not bytes.
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/Unicode.h>
#include <cstdio>
#include <map>

class LimitsReader {
public:
    explicit LimitsReader(CTextInput& input) : m_Input(input) { Next(); }

    std::map<qvstring, int> ReadAll() {
        std::map<qvstring, int> limits;
        while (!m_bEnd) {
            if (!ReadLine(limits)) {
                SkipLine();
            }
        }
        return limits;
    }

private:
    bool ReadLine(std::map<qvstring, int>& limits) {
        const qvstring name = Read([](const UnicodeCharacter& c) { return c.IsLetter(); });
        if (name.empty()) {
            return Fault("a name is missing");
        }
        if (m_bEnd || m_Character.GetCodePoint() != '=') {
            return Fault("'=' is missing");
        }
        Next();
        const qvstring digits = Read([](const UnicodeCharacter& c) { return c.IsASCIIDigit(); });
        if (digits.empty() || digits.size() > 9) {
            return Fault("a number of 1 to 9 digits is missing");
        }
        if (!m_bEnd && m_Character.GetCodePoint() != '\n') {
            return Fault("the line should end here");
        }
        limits[name] = std::stoi(digits);
        Next();
        return true;
    }

    // Reads characters as long as they are of a kind, and the blanks around them.
    template<class OfKind>
    qvstring Read(OfKind ofKind) {
        qvstring text;
        SkipBlanks();
        while (!m_bEnd && ofKind(m_Character)) {
            qv_append_codepoint_to_qvstring(m_Character.GetCodePoint(), text);
            Next();
        }
        SkipBlanks();
        return text;
    }

    void SkipBlanks() {
        while (!m_bEnd && m_Character.GetCodePoint() == ' ') {
            Next();
        }
    }

    void SkipLine() {
        while (!m_bEnd && m_Character.GetCodePoint() != '\n') {
            Next();
        }
        Next();
    }

    bool Fault(const char* what) {
        std::printf("%s(%u,%u): %s\n", m_Location.GetSourceNameRef()->GetName().c_str(), m_Location.GetLine(),
                    m_Location.GetColumn(), what);
        return false;
    }

    void Next() { m_bEnd = !m_Input.ReadCodePointWithLocation(m_Character, m_Location); }

    CTextInput& m_Input;
    UnicodeCharacter m_Character; // the next one, not used yet
    CQVTextLocation m_Location;   // where it stands
    bool m_bEnd = false;
};

int main() {
    TextInputQVString input("Druck = 16\r\nDurchfluß = viel\rHöhe 12\nTemperatur = 90", "limits.txt");
    for (const auto& [name, limit] : LimitsReader(input).ReadAll()) {
        std::printf("%s: at most %d\n", name.c_str(), limit);
    }
}
