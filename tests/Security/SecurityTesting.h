// A text of user rights, read by a parse context of its own, with the messages in a string.
#pragma once

#include <QVLib/BinaryStreams/BinaryInputMemory.h>
#include <QVLib/BinaryStreams/BinaryOutputBuffer.h>
#include <QVLib/Security/SecuritySettings.h>
#include <QVLib/Security/SecuritySettingsParseContext.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>
#include <memory>
#include <string>

class RightsText {
public:
    explicit RightsText(const qvstring& text) : m_Text(text) {}

    // What is read next: blanks, line ends and comments passed over; empty at the end.
    std::string Next() {
        CParseToken token;
        m_Context.GetToken(token);
        return token.Text();
    }

private:
    const qvstring m_Text;
    TextInputQVString m_Input{m_Text, "f"};

public:
    COutputLogToString m_Messages;
    CSecuritySettingsParseContext m_Context{&m_Input, &m_Messages};
};

template<class Print>
std::string Printed(Print print) {
    CTextOutputString out;
    print(out);
    return out.GetString();
}

inline void Parse(CSecuritySettings& settings, const qvstring& text) {
    RightsText input(text);
    settings.ParseText(input.m_Context);
}

inline std::string Text(const CSecuritySettings& settings) {
    return Printed([&](CTextOutput& out) { settings.SaveAsText(out); });
}

// The bytes that `save` writes to a binary output.
template<class Save>
std::string Saved(Save save) {
    BinaryOutputBuffer out(BinaryStringLengthUTF8Character);
    save(out);
    const std::unique_ptr<unsigned char[]> bytes(out.ToByteArray());
    return {bytes.get(), bytes.get() + out.GetTotalDataSize()};
}

// An input over bytes that outlive it.
class BytesInput : public BinaryInputFromReadOnlyData {
public:
    explicit BytesInput(const std::string& bytes)
        : BinaryInputFromReadOnlyData(BinaryStringLengthUTF8Character,
                                      reinterpret_cast<const unsigned char*>(bytes.data()),
                                      static_cast<unsigned int>(bytes.size())) {}
    explicit BytesInput(std::string&&) = delete;
};
