// From tokens to the tree of an expression.
//
// One token is always read ahead, in an object of the context's that the functions share: each leaves there
// the first token behind what it has parsed. So it lies in no frame of the functions that call themselves
// through each other, and whatever has larger locals stays out of them (noinline), because a thousand levels
// must fit a small stack.
#include <QVLib/Json/JSONValue.h>
#include <QVLib/Json/JSONata.h>
#include <QVLib/Resources/Messages.h>

namespace {

constexpr JSONataExpr::FunctionMetadata kFunctions[] = {
    {"$boolean", JSONataExpr::FunctionBoolean, 1},
    {"$exists", JSONataExpr::FunctionExists, 1},
    {"$not", JSONataExpr::FunctionNot, 1},
};

// Room to begin with, so that a list of usual length is not moved while it grows.
constexpr size_t kUsualOperators = 8;
constexpr size_t kUsualSteps = 4;

bool IsLetter(int character) {
    return (character | 0x20) >= 'a' && (character | 0x20) <= 'z';
}

// Extends the accent in `token` to the whole name.
bool ReadEscapedName(JSONParseContext& context, CParseToken& token) {
    CParseToken stop;
    token.SetType(JSONataTokenEscapedName);
    if (context.AppendTokensUntil(token, '`', '`', stop) != '`') {
        context.LogTokenError(token, g_LibModule, QVMessage::EscapedNameNotTerminated);
        return false;
    }
    token.Append(stop);
    return true;
}

// Makes a function's name of "$" when an identifier stands right behind it.
void ExtendDollar(JSONParseContext& context, CParseToken& token) {
    const int ahead = context.PeekNextCharacter();
    if (ahead >= 0 && !IsLetter(ahead))
        return;
    CParseToken next;
    context.GetNextToken(next);
    if (next.Type() == TokenIdentifier) {
        token.Append(next);
        token.SetType(JSONataTokenFunctionName);
    } else {
        context.ReplaceToken(std::move(next));
    }
}

// Completes a token that a primary may start with.
bool ExtendPrimaryToken(JSONParseContext& context, CParseToken& token) {
    if (token.Type() == '$')
        ExtendDollar(context, token);
    return token.Type() != '`' || ReadEscapedName(context, token);
}

// Gives an identifier in the place of an operator its type as one.
int TranslateOperatorToken(CParseToken& token) {
    if (token.Type() == TokenIdentifier) {
        if (token.EqualIdentifier("and"))
            token.SetType(JSONataTokenAnd);
        else if (token.EqualIdentifier("or"))
            token.SetType(JSONataTokenOr);
        else if (token.EqualIdentifier("in"))
            token.SetType(JSONataTokenIn);
    }
    return token.Type();
}

// Requires the parenthesis that ends an expression and goes on behind it.
bool PassClosingParenthesis(JSONParseContext& context, CParseToken& token) {
    if (token.Type() != ')') {
        context.LogUnexpectedTokenError(token, ")");
        return false;
    }
    context.GetNextJSONToken(token);
    return true;
}

// The name that a token stands for.
qvstring GetName(const CParseToken& token) {
    const qvstring& text = token.Text();
    return token.Type() == JSONataTokenEscapedName ? text.substr(1, text.size() - 2) : text;
}

} // namespace

int JSONataExpr::GetOperatorPrecedence(int tokenType) {
    switch (tokenType) {
    case '*':
    case '/':
    case '%':
        return 60;
    case '+':
    case '-':
    case '&':
        return 50;
    case '=':
    case TokenNotEqual:
    case '<':
    case TokenLessEqual:
    case '>':
    case TokenGreaterEqual:
    case JSONataTokenIn:
        return 40;
    case JSONataTokenAnd:
        return 30;
    case JSONataTokenOr:
        return 20;
    default:
        return 0;
    }
}

std::unique_ptr<JSONataExpr> JSONataExpr::MakeNested(unsigned int depth) {
    return std::unique_ptr<JSONataExpr>(new JSONataExpr(depth));
}

bool JSONataExpr::ParseJSONataExpr(JSONParseContext& context) {
    if (!Parse(context, context.m_Ahead))
        return false;
    context.ReplaceToken(std::move(context.m_Ahead));
    return true;
}

bool JSONataExpr::Parse(JSONParseContext& context, CParseToken& token) {
    m_Operators.clear();
    UnaryExpr* operand = &m_First;
    do {
        if (!operand->Parse(context, token, m_Depth))
            return false;
        operand = AppendOperator(token);
    } while (operand);
    return true;
}

// Appends the operator in `token` and returns its operand, which is still to come; null when it is no
// operator.
[[gnu::noinline]] JSONataExpr::UnaryExpr* JSONataExpr::AppendOperator(CParseToken& token) {
    const int type = TranslateOperatorToken(token);
    const int precedence = GetOperatorPrecedence(type);
    if (precedence == 0)
        return nullptr;
    if (m_Operators.empty())
        m_Operators.reserve(kUsualOperators);
    return &m_Operators.emplace_back(type, precedence, token.Location()).m_Operand;
}

const JSONataExpr::PrimaryFieldRef* JSONataExpr::GetSinglePrimaryFieldRef() const {
    if (!m_Operators.empty() || m_First.IsNegated())
        return nullptr;
    return dynamic_cast<const PrimaryFieldRef*>(m_First.GetPrimary());
}

// What BeginPrimary() has found, and so what is still to be read of it.
enum class JSONataExpr::UnaryExpr::Begun { Failed, Whole, Parenthesis, Function, FieldRef };

JSONataExpr::UnaryExpr::UnaryExpr() = default;
JSONataExpr::UnaryExpr::UnaryExpr(UnaryExpr&& other) noexcept = default;
JSONataExpr::UnaryExpr::~UnaryExpr() = default;

bool JSONataExpr::UnaryExpr::Parse(JSONParseContext& context, CParseToken& token, unsigned int depth) {
    switch (BeginPrimary(context, token, depth)) {
    case Begun::Whole:
        context.GetNextJSONToken(token);
        return true;
    case Begun::Parenthesis:
        return static_cast<PrimaryExpr&>(*m_pPrimary).GetExpr().Parse(context, token) &&
               PassClosingParenthesis(context, token);
    case Begun::Function:
        return static_cast<PrimaryFunction&>(*m_pPrimary).GetArgument().Parse(context, token) &&
               PassClosingParenthesis(context, token);
    case Begun::FieldRef:
        return static_cast<PrimaryFieldRef&>(*m_pPrimary).ParseFieldRef(context, token, depth);
    case Begun::Failed:
        break;
    }
    m_pPrimary.reset();
    return false;
}

template<class Kind, class... Arguments>
void JSONataExpr::UnaryExpr::Make(Arguments&&... arguments) {
    m_pPrimary = std::make_unique<Kind>(std::forward<Arguments>(arguments)...);
}

// Reads the minus, if any, and the first token of the primary, up to where another expression may begin.
[[gnu::noinline]] JSONataExpr::UnaryExpr::Begun
JSONataExpr::UnaryExpr::BeginPrimary(JSONParseContext& context, CParseToken& token, unsigned int depth) {
    m_Operator = 0;
    if (context.GetNextJSONToken(token) == '-') {
        m_Location = token.Location();
        m_Operator = '-';
        context.GetNextJSONToken(token);
    }
    if (!ExtendPrimaryToken(context, token))
        return Begun::Failed;

    switch (const int type = token.Type()) {
    case JSONTokenString: {
        qvstring text;
        JSONParseContext::TranslateJSONStringToken(token, text);
        Make<PrimaryLiteral>(new JSONValueString(std::move(text)));
        return Begun::Whole;
    }
    case JSONTokenNumber:
        Make<PrimaryLiteral>(new JSONValueNumeric(JSONParseContext::NumberFromToken(token)));
        return Begun::Whole;
    case JSONTokenTrue:
    case JSONTokenFalse:
        Make<PrimaryLiteral>(new JSONValueBoolean(type == JSONTokenTrue));
        return Begun::Whole;
    case JSONTokenNull:
        Make<PrimaryLiteral>(new JSONValueNull);
        return Begun::Whole;
    case '(':
        if (depth >= JSONMaxDepth) {
            context.LogSyntaxError(token);
            return Begun::Failed;
        }
        Make<PrimaryExpr>(MakeNested(depth + 1));
        return Begun::Parenthesis;
    case JSONataTokenFunctionName:
        return BeginFunction(context, token, depth);
    case TokenIdentifier:
    case '$':
    case JSONataTokenEscapedName:
        Make<PrimaryFieldRef>(token);
        return Begun::FieldRef;
    default:
        context.LogTokenError(token, g_LibModule, QVMessage::ExpectedPrimary, token.Text().c_str());
        return Begun::Failed;
    }
}

// Looks the function up and reads its parenthesis.
JSONataExpr::UnaryExpr::Begun JSONataExpr::UnaryExpr::BeginFunction(JSONParseContext& context,
                                                                    CParseToken& token, unsigned int depth) {
    const FunctionMetadata* const function = PrimaryFunction::Find(token);
    if (!function) {
        context.LogTokenError(token, g_LibModule, QVMessage::FunctionNotRecognized, token.Text().c_str());
        return Begun::Failed;
    }
    if (context.GetNextJSONToken(token) != '(') {
        context.LogUnexpectedTokenError(token, "(");
        return Begun::Failed;
    }
    if (depth >= JSONMaxDepth) {
        context.LogSyntaxError(token);
        return Begun::Failed;
    }
    Make<PrimaryFunction>(function, MakeNested(depth + 1));
    return Begun::Function;
}

JSONataExpr::PrimaryLiteral::PrimaryLiteral(JSONValue* value) : m_pValue(value) {
    m_pValue->AddRef();
}

JSONataExpr::PrimaryLiteral::~PrimaryLiteral() {
    m_pValue->Release();
}

JSONataExpr::PrimaryExpr::PrimaryExpr(std::unique_ptr<JSONataExpr> expression)
    : m_pExpr(std::move(expression)) {}

const JSONataExpr::FunctionMetadata* JSONataExpr::PrimaryFunction::Find(const CParseToken& name) {
    int lower = 0;
    int upper = static_cast<int>(std::size(kFunctions)) - 1;
    while (lower <= upper) {
        const int middle = (lower + upper) / 2;
        const int order = name.CompareIdentifier(kFunctions[middle].m_pName);
        if (order == 0)
            return &kFunctions[middle];
        if (order > 0)
            lower = middle + 1;
        else
            upper = middle - 1;
    }
    return nullptr;
}

JSONataExpr::PrimaryFunction::PrimaryFunction(const FunctionMetadata* function,
                                              std::unique_ptr<JSONataExpr> argument)
    : m_pFunction(function) {
    m_Arguments[0] = std::move(argument);
}

JSONataExpr::PrimaryFieldRef::PrimaryFieldRef(const CParseToken& token)
    : m_Token(token), m_FieldName(GetName(m_Token)) {}

bool JSONataExpr::PrimaryFieldRef::ParseFieldRef(JSONParseContext& context, CParseToken& token,
                                                 unsigned int depth) {
    while (PostFixOp* const step = BeginStep(context, token, depth)) {
        if (!step->ParsePostFixOP(context))
            return false;
    }
    return token.Type() != '['; // which would be one that goes too deep
}

// Reads a token and appends the step that begins with it; null when none does, or none may.
[[gnu::noinline]] JSONataExpr::PostFixOp*
JSONataExpr::PrimaryFieldRef::BeginStep(JSONParseContext& context, CParseToken& token, unsigned int depth) {
    const int type = context.GetNextJSONToken(token);
    if (type != '.' && type != '[')
        return nullptr;
    if (type == '[' && depth >= JSONMaxDepth) {
        context.LogSyntaxError(token);
        return nullptr;
    }
    if (m_Steps.empty())
        m_Steps.reserve(kUsualSteps);
    if (type == '.')
        m_Steps.push_back(std::make_unique<PostFixOpStruct>(token.Location()));
    else
        m_Steps.push_back(std::make_unique<PostFixOpArray>(token.Location(), MakeNested(depth + 1)));
    return m_Steps.back().get();
}

bool JSONataExpr::PostFixOpStruct::ParsePostFixOP(JSONParseContext& context) {
    CParseToken& token = context.m_Ahead;
    if (context.GetNextJSONToken(token) == '`' && !ReadEscapedName(context, token))
        return false;
    if (token.Type() != TokenIdentifier && token.Type() != JSONataTokenEscapedName) {
        context.LogUnexpectedTokenError(token, "Struct member name");
        return false;
    }
    m_Location.End() = token.Location().GetEnd();
    m_FieldName = GetName(token);
    // Without its place, which the step's range ends with: a place holds on to the source's name.
    m_Token = CParseToken(token.Text(), CErrorLocationTextRange());
    m_Token.SetType(token.Type());
    return true;
}

JSONataExpr::PostFixOpArray::PostFixOpArray(const CErrorLocationTextRange& location,
                                            std::unique_ptr<JSONataExpr> index)
    : PostFixOp(location), m_pIndex(std::move(index)) {}

bool JSONataExpr::PostFixOpArray::ParsePostFixOP(JSONParseContext& context) {
    const CParseToken& token = context.m_Ahead;
    if (!m_pIndex->Parse(context, context.m_Ahead))
        return false;
    if (token.Type() != ']') {
        context.LogUnexpectedTokenError(token, "]");
        return false;
    }
    m_Location.End() = token.Location().GetEnd();
    return true;
}
