// A text of user rights, read by a parse context of its own, with the messages in a string.
#pragma once

#include "support/BinaryBytes.h"
#include <QVLib/Security/SecuritySettings.h>
#include <QVLib/Security/SecuritySettingsParseContext.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <QVPlatform/TextOutput.h>
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
