// Reads setpoints such as "Level = 40;" with a parser of its own. Each fault is told with its place, and the rest of the
// text is read all the same.
#include <QVLib/Parsing/ParseContext.h>
#include <QVLib/TextStreams/TextInputString.h>
#include <cstdio>

class SetpointParser : public CParseContext {
public:
    using CParseContext::CParseContext;

    // Every setpoint that is understood is printed; GetErrorCount() tells of the others.
    void ParseAll() {
        CParseToken token;
        for (int type; (type = GetNextTokenSkipWS(token)) != TokenEndOfFile;) {
            if (!(type == TokenIdentifier ? ParseSetpoint(token) : Refuse(token, "a name"))) {
                SkipToBeforeToken(';');
                GetNextTokenSkipWS(token);
            }
        }
    }

private:
    // The name was read; `token` is used for what follows it.
    bool ParseSetpoint(CParseToken& token) {
        const qvstring name = token.Text();
        if (GetNextTokenSkipWS(token) != '=')
            return Refuse(token, "=");
        if (GetNextTokenSkipWS(token) != TokenNumeric)
            return Refuse(token, "a number");
        const qvstring value = token.Text();
        if (GetNextTokenSkipWS(token) != ';')
            return Refuse(token, ";");
        std::printf("%s is set to %s\n", name.c_str(), value.c_str());
        return true;
    }

    bool Refuse(CParseToken& token, const char* expected) {
        LogUnexpectedTokenError(token, expected);
        ReplaceToken(std::move(token)); // so that it may end the setpoint that is skipped
        return false;
    }
};

int main() {
    TextInputQVString input("Level = 40;\nFlow 12;\nPressure = high;\nSpeed = 1500;\n", "setpoints.txt");
    COutputLogToString log;
    SetpointParser parser(&input, &log);
    parser.ParseAll();
    std::printf("%u errors:\n%s", parser.GetErrorCount(), log.GetString().c_str());
}
