#include <QVLib/Security/SecuritySettingsParseContext.h>

namespace {

bool StartsComment(const CParseToken& token) {
    return (token.Type() == '#' || token.Type() == ';') && token.Location().GetBegin().GetPosition() == 0;
}

} // namespace

int CSecuritySettingsParseContext::GetToken(CParseToken& token) {
    do
        GetNextSecuritySettingsToken(token);
    while (token.Type() == TokenSecuritySettingsComment);
    return token.Type();
}

void CSecuritySettingsParseContext::GetNextSecuritySettingsToken(CParseToken& token) {
    GetNextTokenSkipWS(token);
    if (!StartsComment(token))
        return;
    token.SetType(TokenSecuritySettingsComment);
    const unsigned int line = token.Location().GetBegin().GetLine();
    CParseToken next;
    for (;;) {
        GetNextToken(next);
        if (next.Type() == TokenEndOfFile || next.Location().GetBegin().GetLine() != line)
            break;
        token.Append(next);
    }
    ReplaceToken(std::move(next));
}
