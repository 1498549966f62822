// From the tree of an expression to its canonical text.
#include <QVLib/Json/JSONValue.h>
#include <QVLib/Json/JSONata.h>
#include <QVPlatform/TextOutput.h>
#include <string_view>

namespace {

[[gnu::noinline]] void Write(CTextOutput& out, std::string_view text) {
    out.WriteString(text.data(), static_cast<unsigned int>(text.size()));
}

} // namespace

const char* JSONataExpr::GetOperatorText(int tokenType) {
    switch (tokenType) {
    case '*':
        return "*";
    case '/':
        return "/";
    case '%':
        return "%";
    case '+':
        return "+";
    case '-':
        return "-";
    case '&':
        return "&";
    case '=':
        return "=";
    case TokenNotEqual:
        return "!=";
    case '<':
        return "<";
    case TokenLessEqual:
        return "<=";
    case '>':
        return ">";
    case TokenGreaterEqual:
        return ">=";
    case JSONataTokenIn:
        return "in";
    case JSONataTokenAnd:
        return "and";
    case JSONataTokenOr:
        return "or";
    default:
        return "** Unkown **";
    }
}

void JSONataExpr::FormatJSONataExpr(CTextOutput& out) const {
    m_First.Format(out);
    for (const OperatorAndPrimary* operation = OperatorsBegin(); operation != OperatorsEnd(); ++operation) {
        out.PrintChar(' ');
        Write(out, GetOperatorText(operation->m_Operator));
        out.PrintChar(' ');
        operation->m_Operand.Format(out);
    }
}

void JSONataExpr::UnaryExpr::Format(CTextOutput& out) const {
    if (IsNegated())
        out.PrintChar('-');
    if (m_pPrimary)
        m_pPrimary->FormatPrimary(out);
}

void JSONataExpr::PrimaryLiteral::FormatPrimary(CTextOutput& out) const {
    m_pValue->Format(false, out);
}

void JSONataExpr::PrimaryExpr::FormatPrimary(CTextOutput& out) const {
    out.PrintChar('(');
    m_pExpr->FormatJSONataExpr(out);
    out.PrintChar(')');
}

void JSONataExpr::PrimaryFunction::FormatPrimary(CTextOutput& out) const {
    Write(out, m_pFunction->m_pName);
    Write(out, "( ");
    for (unsigned int i = 0; i < m_nArguments; ++i) {
        if (i != 0)
            Write(out, ", ");
        m_Arguments[i]->FormatJSONataExpr(out);
    }
    Write(out, " )");
}

void JSONataExpr::PrimaryFieldRef::FormatPrimary(CTextOutput& out) const {
    Write(out, m_Token.Text());
    for (size_t i = 0; i < m_Steps.size(); ++i)
        m_Steps[i]->FormatPostFixOp(out);
}

void JSONataExpr::PostFixOpStruct::FormatPostFixOp(CTextOutput& out) const {
    out.PrintChar('.');
    Write(out, m_Token.Text());
}

void JSONataExpr::PostFixOpArray::FormatPostFixOp(CTextOutput& out) const {
    out.PrintChar('[');
    m_pIndex->FormatJSONataExpr(out);
    out.PrintChar(']');
}
