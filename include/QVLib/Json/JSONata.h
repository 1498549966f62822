// JSONataExpr - an expression over JSON values, compiled once and evaluated as often as wanted.
//
//     JSONataExpr expression;
//     if (expression.ParseJSONataExpr(context)) {
//         if (JSONValue* value = expression.Evaluate(document, log)) {
//             value->Format(false, out);
//             value->Release();
//         }
//     }
//
// Language: a small part of JSONata. Literals, paths (a.b[0], `any name`, $ for the input itself), parentheses, one
//           minus, the functions $boolean, $exists and $not with one argument each, and operators, from those that
//           bind most:  * / %   + - &   = != < <= > >= in   and   or
//           Paths do not map over arrays, "[...]" is an index and no filter, and there are no variables.
// No value: what is missing has no value, a null pointer, which is not the JSON null. Nobody is told: arithmetic and
//           logic with it have no value either, comparisons are false, "&" skips it.
// Errors:   parsing stops with one error in the context's log. Evaluation reports operands of the wrong type at the
//           operator that refuses them, and has no value then.
// Depth:    brackets nest at most JSONMaxDepth levels, so an expression is parsed, printed, evaluated and deleted on
//           a small stack.
// Threads:  one thread at a time, reading included: evaluation counts references to the literals.
#pragma once

#include <QVLib/Json/JSONParseContext.h>
#include <array>
#include <memory>
#include <vector>

class CErrorLog;
class CTextOutput;
class JSONValue;

// Token types behind those of JSONTokenType.
enum JSONataTokenType : int {
    JSONataTokenEscapedName = 200,  // `any text`, accents included
    JSONataTokenFunctionName = 201, // $name
    // Identifiers in the place of an operator; elsewhere they are names like any other.
    JSONataTokenAnd = 202,
    JSONataTokenOr = 203,
    JSONataTokenIn = 204,
};

class JSONataExpr {
public:
    class Primary;
    class PrimaryLiteral;
    class PrimaryExpr;
    class PrimaryFunction;
    class PrimaryFieldRef;
    class PostFixOp;
    class PostFixOpStruct;
    class PostFixOpArray;
    class ValueStack;

    // A primary, or what a minus makes of it.
    class UnaryExpr {
    public:
        UnaryExpr();
        UnaryExpr(UnaryExpr&& other) noexcept;
        ~UnaryExpr();

        bool IsNegated() const { return m_Operator != 0; }
        // Null when parsing did not get that far.
        const Primary* GetPrimary() const { return m_pPrimary.get(); }

    private:
        friend class JSONataExpr;
        enum class Begun;

        bool Parse(JSONParseContext& context, CParseToken& token, unsigned int depth);
        Begun BeginPrimary(JSONParseContext& context, CParseToken& token, unsigned int depth);
        Begun BeginFunction(JSONParseContext& context, CParseToken& token, unsigned int depth);
        template<class Kind, class... Arguments>
        void Make(Arguments&&... arguments);
        void Format(CTextOutput& out) const;
        JSONValue* Evaluate(JSONValue* input, CErrorLog& log) const;

        CErrorLocationTextRange m_Location; // of the minus
        int m_Operator = 0;                 // '-' or 0
        std::unique_ptr<Primary> m_pPrimary;
    };

    // An operator and its right operand.
    struct OperatorAndPrimary {
        OperatorAndPrimary(int type, int precedence, const CErrorLocationTextRange& location)
            : m_Operator(type), m_Precedence(precedence), m_Location(location) {}

        int m_Operator; // token type
        int m_Precedence;
        CErrorLocationTextRange m_Location; // of the operator, where errors of the operation are reported
        UnaryExpr m_Operand;
    };

    struct FunctionMetadata {
        const char* m_pName;
        int m_Code;
        int m_nParameters;
    };

    enum FunctionCode : int { FunctionBoolean = 0, FunctionNot = 1, FunctionExists = 2 };

    JSONataExpr() = default;
    JSONataExpr(const JSONataExpr&) = delete;
    JSONataExpr& operator=(const JSONataExpr&) = delete;
    ~JSONataExpr() = default;

    // Parses one expression in place of what was held. What follows it is left to the caller, as the context's
    // next token. False after one error in the context's log; what was parsed until then is of no use.
    bool ParseJSONataExpr(JSONParseContext& context);
    // Prints the expression in its one canonical form, which parses to the same expression but for digits that
    // "%g" drops.
    void FormatJSONataExpr(CTextOutput& out) const;
    // The value against `input`, which may be null; the caller releases it. Null when there is none, with an error
    // in `log` when that is because of operands of the wrong type.
    JSONValue* Evaluate(JSONValue* input, CErrorLog& log) const;
    // The path that is the whole expression, for callers that write to what they read; null for any other.
    const PrimaryFieldRef* GetSinglePrimaryFieldRef() const;

    // How an operator is printed and how much it binds; precedence 0 is no operator.
    static const char* GetOperatorText(int tokenType);
    static int GetOperatorPrecedence(int tokenType);

private:
    explicit JSONataExpr(unsigned int depth) : m_Depth(depth) {}
    static std::unique_ptr<JSONataExpr> MakeNested(unsigned int depth);

    // Parses like ParseJSONataExpr(), and leaves the token that follows in `token`.
    bool Parse(JSONParseContext& context, CParseToken& token);
    UnaryExpr* AppendOperator(CParseToken& token);
    JSONValue* EvaluateOperators(JSONValue* input, CErrorLog& log) const;

    // The operators as an array, because iterators would weigh on every level of a recursion in checked builds.
    const OperatorAndPrimary* OperatorsBegin() const { return m_Operators.data(); }
    const OperatorAndPrimary* OperatorsEnd() const { return m_Operators.data() + m_Operators.size(); }

    unsigned int m_Depth = 0; // brackets around this expression
    UnaryExpr m_First;
    std::vector<OperatorAndPrimary> m_Operators; // in the order of the text
};

class JSONataExpr::Primary {
public:
    Primary() = default;
    Primary(const Primary&) = delete;
    Primary& operator=(const Primary&) = delete;
    virtual ~Primary() = default;

    virtual void FormatPrimary(CTextOutput& out) const = 0;
    virtual JSONValue* Evaluate(JSONValue* input, CErrorLog& log) const = 0;
};

class JSONataExpr::PrimaryLiteral final : public Primary {
public:
    // Takes a reference of its own.
    explicit PrimaryLiteral(JSONValue* value);
    ~PrimaryLiteral() override;

    void FormatPrimary(CTextOutput& out) const override;
    JSONValue* Evaluate(JSONValue* input, CErrorLog& log) const override;

private:
    JSONValue* m_pValue;
};

class JSONataExpr::PrimaryExpr final : public Primary {
public:
    explicit PrimaryExpr(std::unique_ptr<JSONataExpr> expression);

    void FormatPrimary(CTextOutput& out) const override;
    JSONValue* Evaluate(JSONValue* input, CErrorLog& log) const override;

    JSONataExpr& GetExpr() { return *m_pExpr; }

private:
    std::unique_ptr<JSONataExpr> m_pExpr;
};

class JSONataExpr::PrimaryFunction final : public Primary {
public:
    // The function of a name in any case of its letters; null when there is none.
    static const FunctionMetadata* Find(const CParseToken& name);

    PrimaryFunction(const FunctionMetadata* function, std::unique_ptr<JSONataExpr> argument);

    void FormatPrimary(CTextOutput& out) const override;
    JSONValue* Evaluate(JSONValue* input, CErrorLog& log) const override;

    JSONataExpr& GetArgument() { return *m_Arguments[0]; }

private:
    const FunctionMetadata* m_pFunction;
    unsigned int m_nArguments = 1;
    std::array<std::unique_ptr<JSONataExpr>, 4> m_Arguments;
};

// A field of the input, or "$", and the steps from there.
class JSONataExpr::PrimaryFieldRef final : public Primary {
public:
    explicit PrimaryFieldRef(const CParseToken& token);

    void FormatPrimary(CTextOutput& out) const override;
    JSONValue* Evaluate(JSONValue* input, CErrorLog& log) const override;

    // As written, accents included.
    const CParseToken& GetToken() const { return m_Token; }
    const qvstring& GetFieldName() const { return m_FieldName; }
    const std::vector<std::unique_ptr<PostFixOp>>& GetSteps() const { return m_Steps; }

    // Parses the steps, and leaves the token that follows in `token`; `depth` counts the brackets around the path.
    bool ParseFieldRef(JSONParseContext& context, CParseToken& token, unsigned int depth);

private:
    PostFixOp* BeginStep(JSONParseContext& context, CParseToken& token, unsigned int depth);
    JSONValue* EvaluateStart(JSONValue* input) const;

    CParseToken m_Token;
    qvstring m_FieldName;
    std::vector<std::unique_ptr<PostFixOp>> m_Steps;
};

// One step of a path. Its range begins at the "." or "[".
class JSONataExpr::PostFixOp {
public:
    explicit PostFixOp(const CErrorLocationTextRange& location) : m_Location(location) {}
    PostFixOp(const PostFixOp&) = delete;
    PostFixOp& operator=(const PostFixOp&) = delete;
    virtual ~PostFixOp() = default;

    // Parses what follows the first token, and extends the range over it.
    virtual bool ParsePostFixOP(JSONParseContext& context) = 0;
    virtual void FormatPostFixOp(CTextOutput& out) const = 0;
    // From `current`, which is not null, one step on. `input` is what the whole expression is evaluated against.
    virtual JSONValue* Evaluate(JSONValue* input, JSONValue* current, CErrorLog& log) const = 0;

    const CErrorLocationTextRange& GetLocation() const { return m_Location; }

protected:
    CErrorLocationTextRange m_Location;
};

class JSONataExpr::PostFixOpStruct final : public PostFixOp {
public:
    using PostFixOp::PostFixOp;

    bool ParsePostFixOP(JSONParseContext& context) override;
    void FormatPostFixOp(CTextOutput& out) const override;
    JSONValue* Evaluate(JSONValue* input, JSONValue* current, CErrorLog& log) const override;

    const qvstring& GetFieldName() const { return m_FieldName; }

private:
    CParseToken m_Token;
    qvstring m_FieldName;
};

class JSONataExpr::PostFixOpArray final : public PostFixOp {
public:
    PostFixOpArray(const CErrorLocationTextRange& location, std::unique_ptr<JSONataExpr> index);

    bool ParsePostFixOP(JSONParseContext& context) override;
    void FormatPostFixOp(CTextOutput& out) const override;
    JSONValue* Evaluate(JSONValue* input, JSONValue* current, CErrorLog& log) const override;

private:
    std::unique_ptr<JSONataExpr> m_pIndex;
};

// Values and operators that wait for an operator that binds less. Whoever pushes an operator has applied those that
// bind as much or more before, so there are never more operators than precedences.
class JSONataExpr::ValueStack {
public:
    ValueStack() = default;
    ValueStack(const ValueStack&) = delete;
    ValueStack& operator=(const ValueStack&) = delete;
    // Releases the values that are left.
    ~ValueStack();

    // Takes over the caller's reference; null is a value that is missing.
    void PushValue(JSONValue* value);
    void PushOperator(const OperatorAndPrimary* operation);
    // Applies the operators on top that bind at least so much. False when one has no result.
    bool DoOperations(int minimumPrecedence, CErrorLog& log);
    // The value on top, with a reference for the caller.
    JSONValue* GetStackTop() const;

    // The operations that the values' classes leave open; either side may be null. Results are the caller's to
    // release.
    static JSONValue* CompareValues(JSONValue* left, bool notEqual, JSONValue* right);
    static JSONValue* CompareValues(JSONValue* left, int operatorType, const char* operatorText,
                                    JSONValue* right, const ErrorLocation& where, CErrorLog& log);
    static JSONValue* ConcatenateStrings(JSONValue* left, JSONValue* right);
    static JSONValue* LogicalAND(JSONValue* left, JSONValue* right);
    static JSONValue* LogicalOR(JSONValue* left, JSONValue* right);

private:
    static constexpr unsigned int Precedences = 5;

    static JSONValue* Apply(const OperatorAndPrimary& operation, JSONValue* left, JSONValue* right,
                            CErrorLog& log);
    static JSONValue* ExtendString(JSONValue* left, JSONValue* right);
    static JSONValue* Calculate(const OperatorAndPrimary& operation, JSONValue* left, JSONValue* right,
                                CErrorLog& log);

    unsigned int m_nValues = 0;
    unsigned int m_nOperators = 0;
    JSONValue* m_Values[Precedences + 1];
    const OperatorAndPrimary* m_OperatorStack[Precedences];
};
