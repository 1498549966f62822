// From an expression and a value to a value.
#include <QVLib/Json/JSONValue.h>
#include <QVLib/Json/JSONata.h>
#include <QVLib/Resources/Messages.h>
#include <QVPlatform/Assert.h>
#include <QVPlatform/TextOutput.h>
#include <typeinfo>

namespace {

// The value as one of that class; null for any other. The classes are final, so no search through bases is needed.
template<class Kind>
const Kind* As(const JSONValue* value) {
    return value && typeid(*value) == typeid(Kind) ? static_cast<const Kind*>(value) : nullptr;
}

JSONValue* Share(JSONValue* value) {
    if (value)
        value->AddRef();
    return value;
}

void ReleaseValue(JSONValue* value) {
    if (value)
        value->Release();
}

JSONValue* MakeBoolean(bool value) {
    return Share(new JSONValueBoolean(value));
}

bool AreEqual(const JSONValue* left, const JSONValue* right) {
    if (typeid(*left) != typeid(*right))
        return false;
    if (const auto* const number = As<JSONValueNumeric>(left))
        return number->GetValue() == static_cast<const JSONValueNumeric*>(right)->GetValue();
    if (const auto* const text = As<JSONValueString>(left))
        return text->GetValue() == static_cast<const JSONValueString*>(right)->GetValue();
    if (const auto* const boolean = As<JSONValueBoolean>(left))
        return boolean->GetValue() == static_cast<const JSONValueBoolean*>(right)->GetValue();
    return left->IsNull(); // arrays and objects equal nothing, not even themselves
}

// Negative, 0 or positive; a NaN is neither less nor greater than anything.
int CompareNumbers(double left, double right) {
    return left < right ? -1 : left > right ? 1 : 0;
}

bool HoldsFor(int operatorType, int comparison) {
    switch (operatorType) {
    case '>':
        return comparison > 0;
    case TokenGreaterEqual:
        return comparison >= 0;
    case '<':
        return comparison < 0;
    default:
        return comparison <= 0;
    }
}

// The element that `index` names, truncated toward zero. Null for a NaN and for what no array can hold.
JSONValue* LookupElement(const JSONValueArray& array, double index) {
    if (!(index > -2147483649.0 && index < 2147483648.0))
        return nullptr;
    return array.LookupValue(static_cast<int>(index));
}

JSONValue* FindMember(const JSONValue* value, const qvstring& name) {
    const auto* const object = As<JSONValueObject>(value);
    return object ? object->FindMember(name) : nullptr;
}

} // namespace

JSONValue* JSONataExpr::Evaluate(JSONValue* input, CErrorLog& log) const {
    return m_Operators.empty() ? m_First.Evaluate(input, log) : EvaluateOperators(input, log);
}

// Apart from Evaluate(), so that levels without operators need no room for values.
[[gnu::noinline]] JSONValue* JSONataExpr::EvaluateOperators(JSONValue* input, CErrorLog& log) const {
    ValueStack stack;
    stack.PushValue(m_First.Evaluate(input, log));
    for (const OperatorAndPrimary* operation = OperatorsBegin(); operation != OperatorsEnd(); ++operation) {
        // Before the operand: what follows a failure is not evaluated.
        if (!stack.DoOperations(operation->m_Precedence, log))
            return nullptr;
        stack.PushValue(operation->m_Operand.Evaluate(input, log));
        stack.PushOperator(operation);
    }
    return stack.DoOperations(0, log) ? stack.GetStackTop() : nullptr;
}

JSONValue* JSONataExpr::UnaryExpr::Evaluate(JSONValue* input, CErrorLog& log) const {
    JSONValue* const value = m_pPrimary ? m_pPrimary->Evaluate(input, log) : nullptr;
    if (!IsNegated() || !value)
        return value;
    JSONValue* const negated = value->DoNegate(m_Location, log);
    value->Release();
    return negated;
}

JSONValue* JSONataExpr::PrimaryLiteral::Evaluate(JSONValue*, CErrorLog&) const {
    return Share(m_pValue);
}

JSONValue* JSONataExpr::PrimaryExpr::Evaluate(JSONValue* input, CErrorLog& log) const {
    return m_pExpr->Evaluate(input, log);
}

JSONValue* JSONataExpr::PrimaryFunction::Evaluate(JSONValue* input, CErrorLog& log) const {
    JSONValue* const argument = m_Arguments[0]->Evaluate(input, log);
    const bool bExists = argument != nullptr;
    const bool bTrue = bExists && argument->CastToBoolean();
    ReleaseValue(argument);
    switch (m_pFunction->m_Code) {
    case FunctionBoolean:
        return bExists ? MakeBoolean(bTrue) : nullptr;
    case FunctionNot:
        return MakeBoolean(!bTrue);
    default:
        return MakeBoolean(bExists);
    }
}

JSONValue* JSONataExpr::PrimaryFieldRef::Evaluate(JSONValue* input, CErrorLog& log) const {
    JSONValue* current = EvaluateStart(input);
    for (size_t i = 0; current && i < m_Steps.size(); ++i) {
        JSONValue* const next = m_Steps[i]->Evaluate(input, current, log);
        current->Release();
        current = next;
    }
    return current;
}

JSONValue* JSONataExpr::PrimaryFieldRef::EvaluateStart(JSONValue* input) const {
    return m_Token.Type() == '$' ? Share(input) : FindMember(input, m_FieldName);
}

JSONValue* JSONataExpr::PostFixOpStruct::Evaluate(JSONValue*, JSONValue* current, CErrorLog&) const {
    return FindMember(current, m_FieldName);
}

JSONValue* JSONataExpr::PostFixOpArray::Evaluate(JSONValue* input, JSONValue* current, CErrorLog& log) const {
    const auto* const array = As<JSONValueArray>(current);
    if (!array)
        return nullptr;
    // The index sees what the whole expression sees, not the array.
    JSONValue* const index = m_pIndex->Evaluate(input, log);
    const auto* const number = As<JSONValueNumeric>(index);
    JSONValue* const element = number ? LookupElement(*array, number->GetValue()) : nullptr;
    ReleaseValue(index);
    return element;
}

JSONataExpr::ValueStack::~ValueStack() {
    while (m_nValues != 0)
        ReleaseValue(m_Values[--m_nValues]);
}

void JSONataExpr::ValueStack::PushValue(JSONValue* value) {
    QV_ASSERT(m_nValues <= Precedences);
    m_Values[m_nValues++] = value;
}

void JSONataExpr::ValueStack::PushOperator(const OperatorAndPrimary* operation) {
    QV_ASSERT(m_nOperators < Precedences);
    m_OperatorStack[m_nOperators++] = operation;
}

bool JSONataExpr::ValueStack::DoOperations(int minimumPrecedence, CErrorLog& log) {
    while (m_nOperators != 0 && m_OperatorStack[m_nOperators - 1]->m_Precedence >= minimumPrecedence) {
        QV_ASSERT(m_nValues >= 2);
        const OperatorAndPrimary& operation = *m_OperatorStack[--m_nOperators];
        JSONValue* const right = m_Values[--m_nValues];
        JSONValue* const left = m_Values[--m_nValues];
        JSONValue* const result = Apply(operation, left, right, log);
        ReleaseValue(left);
        ReleaseValue(right);
        if (!result)
            return false;
        PushValue(result);
    }
    return true;
}

JSONValue* JSONataExpr::ValueStack::GetStackTop() const {
    QV_ASSERT(m_nValues != 0);
    return Share(m_Values[m_nValues - 1]);
}

JSONValue* JSONataExpr::ValueStack::Apply(const OperatorAndPrimary& operation, JSONValue* left,
                                          JSONValue* right, CErrorLog& log) {
    const int type = operation.m_Operator;
    switch (type) {
    case '=':
    case TokenNotEqual:
        return CompareValues(left, type == TokenNotEqual, right);
    case '<':
    case TokenLessEqual:
    case '>':
    case TokenGreaterEqual:
        return CompareValues(left, type, GetOperatorText(type), right, operation.m_Location, log);
    case '&':
        return ExtendString(left, right);
    case JSONataTokenAnd:
        return LogicalAND(left, right);
    case JSONataTokenOr:
        return LogicalOR(left, right);
    default:
        return left && right ? Calculate(operation, left, right, log) : nullptr;
    }
}

JSONValue* JSONataExpr::ValueStack::Calculate(const OperatorAndPrimary& operation, JSONValue* left,
                                              JSONValue* right, CErrorLog& log) {
    switch (operation.m_Operator) {
    case '+':
        return left->DoAdd(right, operation.m_Location, log);
    case '-':
        return left->DoSub(right, operation.m_Location, log);
    case '*':
        return left->DoMul(right, operation.m_Location, log);
    case '/':
        return left->DoDiv(right, operation.m_Location, log);
    case '%':
        return left->DoMod(right, operation.m_Location, log);
    default:
        return nullptr; // "in" is part of the grammar only
    }
}

JSONValue* JSONataExpr::ValueStack::CompareValues(JSONValue* left, bool notEqual, JSONValue* right) {
    return MakeBoolean(left && right && AreEqual(left, right) != notEqual);
}

JSONValue* JSONataExpr::ValueStack::CompareValues(JSONValue* left, int operatorType, const char* operatorText,
                                                  JSONValue* right, const ErrorLocation& where,
                                                  CErrorLog& log) {
    if (!left || !right)
        return MakeBoolean(false);
    if (!left->IsNumericOrString() || !right->IsNumericOrString()) {
        log.LogError(where, g_LibModule, QVMessage::SidesNotComparable, operatorText);
        return nullptr;
    }
    const auto* const leftNumber = As<JSONValueNumeric>(left);
    const auto* const rightNumber = As<JSONValueNumeric>(right);
    if (leftNumber && rightNumber)
        return MakeBoolean(
            HoldsFor(operatorType, CompareNumbers(leftNumber->GetValue(), rightNumber->GetValue())));
    const auto* const leftText = As<JSONValueString>(left);
    const auto* const rightText = As<JSONValueString>(right);
    if (leftText && rightText)
        return MakeBoolean(HoldsFor(operatorType, leftText->GetValue().compare(rightText->GetValue())));
    log.LogError(where, g_LibModule, QVMessage::SidesOfDifferentType, operatorText);
    return nullptr;
}

JSONValue* JSONataExpr::ValueStack::ConcatenateStrings(JSONValue* left, JSONValue* right) {
    CTextOutputString text;
    if (left)
        left->Evaluate(text);
    if (right)
        right->Evaluate(text);
    return Share(new JSONValueString(text.GetString()));
}

// ConcatenateStrings() with the left value's memory where only the stack holds it, so that a chain of "&" costs as much
// as its result is long.
JSONValue* JSONataExpr::ValueStack::ExtendString(JSONValue* left, JSONValue* right) {
    if (!As<JSONValueString>(left) || left->IsShared())
        return ConcatenateStrings(left, right);
    CTextOutputString text;
    if (right)
        right->Evaluate(text);
    static_cast<JSONValueString*>(left)->Append(text.GetString());
    return Share(left);
}

JSONValue* JSONataExpr::ValueStack::LogicalAND(JSONValue* left, JSONValue* right) {
    if (!left)
        return nullptr;
    if (!left->CastToBoolean())
        return MakeBoolean(false);
    return right ? MakeBoolean(right->CastToBoolean()) : nullptr;
}

JSONValue* JSONataExpr::ValueStack::LogicalOR(JSONValue* left, JSONValue* right) {
    if (!left)
        return nullptr;
    if (left->CastToBoolean())
        return MakeBoolean(true);
    return right ? MakeBoolean(right->CastToBoolean()) : nullptr;
}
