#include "host/script/Compiler.h"

#include "host/script/Lexer.h"
#include "host/script/Operations.h"

#include <bit>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

namespace quorel::host::script {

namespace {

// Far beyond any real script, and low enough that the recursive descent stays within a small
// stack (also under the sanitizers).
constexpr int kMaxExpressionDepth = 200;
constexpr std::size_t kMaxIfDepth = 200;

// Words of the language that cannot name a variable; the supported ones are handled before.
const std::set<std::string, std::less<>> kReservedWords = {
    "and",        "as",     "boolean",  "byref",    "byte",       "byval",    "call",    "case",
    "class",      "const",  "currency", "debug",    "dim",        "do",       "double",  "each",
    "else",       "elseif", "empty",    "end",      "endif",      "enum",     "eqv",     "event",
    "exit",       "false",  "for",      "function", "get",        "goto",     "if",      "imp",
    "implements", "in",     "integer",  "is",       "let",        "like",     "long",    "loop",
    "lset",       "me",     "mod",      "new",      "next",       "not",      "nothing", "null",
    "on",         "option", "optional", "or",       "paramarray", "preserve", "private", "public",
    "raiseevent", "redim",  "rem",      "resume",   "rset",       "select",   "set",     "shared",
    "single",     "static", "stop",     "sub",      "then",       "to",       "true",    "type",
    "typeof",     "until",  "variant",  "wend",     "while",      "with",     "xor"};

struct BinaryOperator {
    OpCode op;
    int precedence;
};

constexpr int kNotOperandPrecedence = 4;    // Not applies to a whole comparison
constexpr int kUnaryOperandPrecedence = 10; // -2^2 is -(2^2)

std::optional<BinaryOperator> FindBinaryOperator(const Token& token) {
    if (token.kind == TokenKind::kSymbol) {
        static const std::map<std::string, BinaryOperator, std::less<>> kSymbols = {
            {"=", {OpCode::kEqual, 4}},
            {"<>", {OpCode::kNotEqual, 4}},
            {"<", {OpCode::kLess, 4}},
            {">", {OpCode::kGreater, 4}},
            {"<=", {OpCode::kLessOrEqual, 4}},
            {">=", {OpCode::kGreaterOrEqual, 4}},
            {"+", {OpCode::kAdd, 5}},
            {"-", {OpCode::kSubtract, 5}},
            {"\\", {OpCode::kIntegerDivide, 7}},
            {"*", {OpCode::kMultiply, 8}},
            {"/", {OpCode::kDivide, 8}},
            {"^", {OpCode::kPower, 10}}};
        const auto found = kSymbols.find(token.text);
        if (found != kSymbols.end()) {
            return found->second;
        }
    } else if (token.kind == TokenKind::kName) {
        if (token.text == "or") {
            return BinaryOperator{OpCode::kOr, 1};
        }
        if (token.text == "and") {
            return BinaryOperator{OpCode::kAnd, 2};
        }
        if (token.text == "mod") {
            return BinaryOperator{OpCode::kMod, 6};
        }
    }
    return std::nullopt;
}

template <typename Op>
int Fold(double a, std::uint8_t ta, double b, std::uint8_t tb, double& r, std::uint8_t& tr) {
    int error = kNoError;
    Op::Apply(a, ta, b, tb, r, tr, error);
    return error;
}

// The scalar semantics of a binary instruction, for constant folding.
int FoldBinary(OpCode op, double a, std::uint8_t ta, double b, std::uint8_t tb, double& r,
               std::uint8_t& tr) {
    switch (op) {
    case OpCode::kAdd:
        return Fold<AddOp>(a, ta, b, tb, r, tr);
    case OpCode::kSubtract:
        return Fold<SubtractOp>(a, ta, b, tb, r, tr);
    case OpCode::kMultiply:
        return Fold<MultiplyOp>(a, ta, b, tb, r, tr);
    case OpCode::kDivide:
        return Fold<DivideOp>(a, ta, b, tb, r, tr);
    case OpCode::kIntegerDivide:
        return Fold<IntegerDivideOp>(a, ta, b, tb, r, tr);
    case OpCode::kMod:
        return Fold<ModOp>(a, ta, b, tb, r, tr);
    case OpCode::kPower:
        return Fold<PowerOp>(a, ta, b, tb, r, tr);
    case OpCode::kEqual:
        return Fold<CompareOp<std::equal_to<>>>(a, ta, b, tb, r, tr);
    case OpCode::kNotEqual:
        return Fold<CompareOp<std::not_equal_to<>>>(a, ta, b, tb, r, tr);
    case OpCode::kLess:
        return Fold<CompareOp<std::less<>>>(a, ta, b, tb, r, tr);
    case OpCode::kGreater:
        return Fold<CompareOp<std::greater<>>>(a, ta, b, tb, r, tr);
    case OpCode::kLessOrEqual:
        return Fold<CompareOp<std::less_equal<>>>(a, ta, b, tb, r, tr);
    case OpCode::kGreaterOrEqual:
        return Fold<CompareOp<std::greater_equal<>>>(a, ta, b, tb, r, tr);
    case OpCode::kAnd:
        return Fold<AndOp>(a, ta, b, tb, r, tr);
    case OpCode::kOr:
        return Fold<OrOp>(a, ta, b, tb, r, tr);
    default:
        return kInvalidCall; // not a binary instruction: leave it to run time
    }
}

std::string DescribeToken(const Token& token) {
    switch (token.kind) {
    case TokenKind::kEndOfText:
        return "the end of the script";
    case TokenKind::kEndOfLine:
        return "the end of the line";
    case TokenKind::kNumber:
        return "'" + token.text + "'";
    case TokenKind::kName:
        return "'" + token.spelling + "'";
    case TokenKind::kField:
        return "'[" + token.text + "]'";
    case TokenKind::kSymbol:
        return "'" + token.text + "'";
    }
    return "?";
}

class Compiler {
public:
    CompiledScript Run(const std::string& preExpression, const std::string& expression);

private:
    // A value during compilation: a slot, and the value itself when it is known at compile time.
    struct Operand {
        std::uint32_t slot = 0;
        bool temporary = false;
        bool constant = false;
        double value = 0.0;
        std::uint8_t tag = kEmpty;
    };

    struct Variable {
        std::uint32_t slot = 0;
        bool declared = false;
        // Known while it was last assigned a constant outside any If (every variable starts
        // Empty); reads then use the constant, which lets whole subexpressions fold.
        bool known = true;
        double value = 0.0;
        std::uint8_t tag = kEmpty;
    };

    struct OpenIf {
        int line = 0;
        bool hasElse = false;
        std::size_t pendingBranch = 0; // IfBegin/ElseIfTest whose jump goes to the next branch
        std::vector<std::size_t> jumpsToEnd; // ElseIfPrep/Else instructions
    };

    // Statements.
    void ParseStatements();
    void ParseDim();
    void ParseIf();
    void ParseElseIf();
    void ParseElse();
    void ParseEnd();
    void ParseAssignment();
    void ExpectEndOfLine(const char* after);
    void ExpectThen();

    // Expressions.
    Operand ParseExpression(int minimumPrecedence);
    Operand ParsePrefix();

    // Code.
    Operand Constant(double value, std::uint8_t tag);
    Operand EmitBinary(OpCode op, const Operand& left, const Operand& right);
    Operand EmitUnary(OpCode op, const Operand& operand);
    std::size_t Emit(Instruction instruction);
    std::uint32_t NewSlot(Slot slot);
    std::uint32_t AllocateTemporary();
    void Release(const Operand& operand);
    Variable& FindVariable(const std::string& name);
    std::uint32_t FieldSlot(const std::string& name);
    void PatchPendingBranch(std::size_t target);

    [[noreturn]] void Fail(const std::string& detail) const {
        m_lexer->Fail(m_lexer->Peek().line, detail);
    }
    [[noreturn]] void FailAt(int line, const std::string& detail) const {
        m_lexer->Fail(line, detail);
    }

    CompiledScript m_script;
    Lexer* m_lexer = nullptr;
    int m_expressionDepth = 0;
    std::vector<OpenIf> m_openIfs;
    std::unordered_map<std::string, Variable> m_variables;
    std::unordered_map<std::string, std::uint32_t> m_fields;
    std::map<std::pair<std::uint64_t, std::uint8_t>, std::uint32_t> m_constants;
    std::vector<std::uint32_t> m_freeTemporaries;
};

CompiledScript Compiler::Run(const std::string& preExpression, const std::string& expression) {
    Lexer statements(preExpression, false);
    m_lexer = &statements;
    ParseStatements();

    Lexer expressionLexer(expression, true);
    m_lexer = &expressionLexer;
    if (m_lexer->Peek().kind == TokenKind::kEndOfText) {
        Fail("expected an expression");
    }
    const Operand result = ParseExpression(0);
    if (m_lexer->Peek().kind != TokenKind::kEndOfText) {
        Fail("expected the end of the expression, found " + DescribeToken(m_lexer->Peek()));
    }
    m_script.resultSlot = result.slot;
    m_lexer = nullptr;
    return std::move(m_script);
}

void Compiler::ParseStatements() {
    for (;;) {
        const Token& token = m_lexer->Peek();
        if (token.kind == TokenKind::kEndOfText) {
            break;
        }
        if (token.kind == TokenKind::kEndOfLine) {
            m_lexer->Next();
            continue;
        }
        if (token.kind != TokenKind::kName) {
            Fail("expected a statement, found " + DescribeToken(token));
        }
        const std::string word = token.text;
        if (word == "rem") {
            m_lexer->SkipRestOfLine();
            continue;
        }
        if (word == "dim") {
            ParseDim();
        } else if (word == "if") {
            ParseIf();
        } else if (word == "elseif") {
            ParseElseIf();
        } else if (word == "else") {
            ParseElse();
        } else if (word == "end") {
            ParseEnd();
        } else if (word == "endif") {
            Fail("'" + token.spelling + "' is not a statement; write End If");
        } else if (kReservedWords.contains(word)) {
            Fail("'" + token.spelling + "' is not supported");
        } else {
            ParseAssignment();
        }
    }
    if (!m_openIfs.empty()) {
        FailAt(m_openIfs.back().line, "If without End If");
    }
}

void Compiler::ExpectEndOfLine(const char* after) {
    const Token& token = m_lexer->Peek();
    if (token.kind != TokenKind::kEndOfLine && token.kind != TokenKind::kEndOfText) {
        Fail(std::string("expected the end of the line after ") + after + ", found " +
             DescribeToken(token));
    }
}

void Compiler::ParseDim() {
    m_lexer->Next();
    for (;;) {
        const Token name = m_lexer->Next();
        if (name.kind != TokenKind::kName) {
            FailAt(name.line, "expected a variable name after Dim, found " + DescribeToken(name));
        }
        if (kReservedWords.contains(name.text)) {
            FailAt(name.line, "'" + name.spelling + "' is a reserved word, not a variable name");
        }
        if (m_lexer->Peek().kind == TokenKind::kSymbol && m_lexer->Peek().text == "(") {
            Fail("arrays are not supported");
        }
        Variable& variable = FindVariable(name.text);
        if (variable.declared) {
            FailAt(name.line, "name redefined: '" + name.spelling + "'");
        }
        variable.declared = true;
        if (m_lexer->Peek().kind == TokenKind::kSymbol && m_lexer->Peek().text == ",") {
            m_lexer->Next();
            continue;
        }
        break;
    }
    ExpectEndOfLine("the declaration");
}

void Compiler::ExpectThen() {
    const Token& token = m_lexer->Peek();
    if (token.kind != TokenKind::kName || token.text != "then") {
        Fail("expected Then, found " + DescribeToken(token));
    }
    m_lexer->Next();
    const Token& next = m_lexer->Peek();
    if (next.kind != TokenKind::kEndOfLine && next.kind != TokenKind::kEndOfText) {
        Fail("a statement after Then on the same line is not supported; write a block If "
             "... End If");
    }
}

void Compiler::ParseIf() {
    const int line = m_lexer->Next().line;
    if (m_openIfs.size() >= kMaxIfDepth) {
        FailAt(line, "If blocks nested too deeply");
    }
    const Operand condition = ParseExpression(0);
    ExpectThen();
    Release(condition);
    const std::size_t index = Emit({OpCode::kIfBegin, 0, condition.slot, 0, 0});
    m_openIfs.push_back({line, false, index, {}});
    m_script.maxDepth = std::max(m_script.maxDepth, static_cast<std::uint32_t>(m_openIfs.size()));
}

void Compiler::PatchPendingBranch(std::size_t target) {
    m_script.code[m_openIfs.back().pendingBranch].jump = static_cast<std::uint32_t>(target);
}

void Compiler::ParseElseIf() {
    if (m_openIfs.empty()) {
        Fail("ElseIf without If");
    }
    if (m_openIfs.back().hasElse) {
        Fail("ElseIf after Else");
    }
    m_lexer->Next();
    const std::size_t prepare = Emit({OpCode::kElseIfPrep, 0, 0, 0, 0});
    PatchPendingBranch(prepare);
    m_openIfs.back().jumpsToEnd.push_back(prepare);
    const Operand condition = ParseExpression(0);
    ExpectThen();
    Release(condition);
    m_openIfs.back().pendingBranch = Emit({OpCode::kElseIfTest, 0, condition.slot, 0, 0});
}

void Compiler::ParseElse() {
    if (m_openIfs.empty()) {
        Fail("Else without If");
    }
    if (m_openIfs.back().hasElse) {
        Fail("a second Else in the same If");
    }
    m_lexer->Next();
    if (m_lexer->Peek().kind == TokenKind::kName && m_lexer->Peek().text == "if") {
        Fail("a statement after Else on the same line is not supported; write ElseIf");
    }
    ExpectEndOfLine("Else");
    const std::size_t index = Emit({OpCode::kElse, 0, 0, 0, 0});
    PatchPendingBranch(index);
    m_openIfs.back().hasElse = true;
    m_openIfs.back().jumpsToEnd.push_back(index);
    // No branch is pending any more: the Else always runs into End If.
    m_openIfs.back().pendingBranch = index;
}

void Compiler::ParseEnd() {
    m_lexer->Next();
    const Token& token = m_lexer->Peek();
    if (token.kind != TokenKind::kName || token.text != "if") {
        Fail("expected If after End, found " + DescribeToken(token));
    }
    if (m_openIfs.empty()) {
        Fail("End If without If");
    }
    m_lexer->Next();
    ExpectEndOfLine("End If");
    const std::size_t index = Emit({OpCode::kEndIf, 0, 0, 0, 0});
    OpenIf& open = m_openIfs.back();
    if (m_script.code[open.pendingBranch].op != OpCode::kElse) {
        PatchPendingBranch(index);
    }
    for (const std::size_t jump : open.jumpsToEnd) {
        m_script.code[jump].jump = static_cast<std::uint32_t>(index);
    }
    m_openIfs.pop_back();
}

void Compiler::ParseAssignment() {
    const Token name = m_lexer->Next();
    const Token& next = m_lexer->Peek();
    if (next.kind == TokenKind::kSymbol && next.text == "(") {
        FailAt(name.line,
               "procedure calls and arrays are not supported ('" + name.spelling + "(')");
    }
    if (next.kind != TokenKind::kSymbol || next.text != "=") {
        FailAt(name.line,
               "expected '=' after '" + name.spelling + "', found " + DescribeToken(next));
    }
    m_lexer->Next();
    const Operand value = ParseExpression(0);
    ExpectEndOfLine("the assignment");
    Variable& variable = FindVariable(name.text);
    Release(value);
    Emit({OpCode::kStore, variable.slot, value.slot, 0, 0});
    variable.known = m_openIfs.empty() && value.constant;
    variable.value = value.value;
    variable.tag = value.tag;
}

Compiler::Operand Compiler::ParseExpression(int minimumPrecedence) {
    if (++m_expressionDepth > kMaxExpressionDepth) {
        Fail("expression nested too deeply");
    }
    Operand left = ParsePrefix();
    for (;;) {
        const Token& token = m_lexer->Peek();
        if (token.kind == TokenKind::kName &&
            (token.text == "xor" || token.text == "eqv" || token.text == "imp" ||
             token.text == "is" || token.text == "like")) {
            Fail("the operator '" + token.spelling + "' is not supported");
        }
        const std::optional<BinaryOperator> found = FindBinaryOperator(token);
        if (!found || found->precedence < minimumPrecedence) {
            break;
        }
        m_lexer->Next();
        // Left-associative: the right side takes only tighter operators.
        const Operand right = ParseExpression(found->precedence + 1);
        left = EmitBinary(found->op, left, right);
    }
    --m_expressionDepth;
    return left;
}

Compiler::Operand Compiler::ParsePrefix() {
    const Token token = m_lexer->Next();
    switch (token.kind) {
    case TokenKind::kNumber:
        return Constant(token.number, kNumber);
    case TokenKind::kField:
        return Operand{FieldSlot(token.text), false, false, 0.0, kNumber};
    case TokenKind::kSymbol:
        if (token.text == "-") {
            return EmitUnary(OpCode::kNegate, ParseExpression(kUnaryOperandPrecedence));
        }
        if (token.text == "+") {
            return ParseExpression(kUnaryOperandPrecedence);
        }
        if (token.text == "(") {
            const Operand inner = ParseExpression(0);
            const Token close = m_lexer->Next();
            if (close.kind != TokenKind::kSymbol || close.text != ")") {
                FailAt(close.line, "expected ')', found " + DescribeToken(close));
            }
            return inner;
        }
        break;
    case TokenKind::kName:
        if (token.text == "not") {
            return EmitUnary(OpCode::kNot, ParseExpression(kNotOperandPrecedence));
        }
        if (token.text == "true") {
            return Constant(-1.0, kNumber);
        }
        if (token.text == "false") {
            return Constant(0.0, kNumber);
        }
        if (token.text == "null") {
            return Constant(0.0, kNull);
        }
        if (token.text == "empty") {
            return Constant(0.0, kEmpty);
        }
        if (kReservedWords.contains(token.text)) {
            break;
        }
        if (m_lexer->Peek().kind == TokenKind::kSymbol && m_lexer->Peek().text == "(") {
            FailAt(token.line,
                   "functions and arrays are not supported ('" + token.spelling + "(')");
        }
        {
            const Variable& variable = FindVariable(token.text);
            if (variable.known) {
                return Constant(variable.value, variable.tag);
            }
            return Operand{variable.slot, false, false, 0.0, kNumber};
        }
    case TokenKind::kEndOfLine:
    case TokenKind::kEndOfText:
        break;
    }
    FailAt(token.line, "expected an expression, found " + DescribeToken(token));
}

std::size_t Compiler::Emit(Instruction instruction) {
    m_script.code.push_back(instruction);
    return m_script.code.size() - 1;
}

std::uint32_t Compiler::NewSlot(Slot slot) {
    m_script.slots.push_back(slot);
    return static_cast<std::uint32_t>(m_script.slots.size() - 1);
}

Compiler::Operand Compiler::Constant(double value, std::uint8_t tag) {
    if (tag != kNumber) {
        value = 0.0; // Empty must read as 0 in arithmetic
    }
    const auto key = std::make_pair(std::bit_cast<std::uint64_t>(value), tag);
    auto found = m_constants.find(key);
    if (found == m_constants.end()) {
        found = m_constants.emplace(key, NewSlot({SlotKind::kConstant, 0, value, tag})).first;
    }
    return Operand{found->second, false, true, value, tag};
}

std::uint32_t Compiler::AllocateTemporary() {
    if (!m_freeTemporaries.empty()) {
        const std::uint32_t slot = m_freeTemporaries.back();
        m_freeTemporaries.pop_back();
        return slot;
    }
    return NewSlot({SlotKind::kTemporary});
}

void Compiler::Release(const Operand& operand) {
    if (operand.temporary) {
        m_freeTemporaries.push_back(operand.slot);
    }
}

Compiler::Operand Compiler::EmitBinary(OpCode op, const Operand& left, const Operand& right) {
    if (left.constant && right.constant) {
        double value = 0.0;
        std::uint8_t tag = kNumber;
        // A failing constant operation stays in the code: it fails only if a feature runs it.
        if (FoldBinary(op, left.value, left.tag, right.value, right.tag, value, tag) == kNoError) {
            return Constant(value, tag);
        }
    }
    Release(left);
    Release(right);
    const std::uint32_t target = AllocateTemporary();
    Emit({op, target, left.slot, right.slot, 0});
    return Operand{target, true, false, 0.0, kNumber};
}

Compiler::Operand Compiler::EmitUnary(OpCode op, const Operand& operand) {
    if (operand.constant) {
        double value = 0.0;
        std::uint8_t tag = kNumber;
        int error = kNoError;
        if (op == OpCode::kNegate) {
            NegateOp::Apply(operand.value, operand.tag, value, tag, error);
        } else {
            NotOp::Apply(operand.value, operand.tag, value, tag, error);
        }
        if (error == kNoError) {
            return Constant(value, tag);
        }
    }
    Release(operand);
    const std::uint32_t target = AllocateTemporary();
    Emit({op, target, operand.slot, 0, 0});
    return Operand{target, true, false, 0.0, kNumber};
}

Compiler::Variable& Compiler::FindVariable(const std::string& name) {
    auto found = m_variables.find(name);
    if (found == m_variables.end()) {
        Variable variable;
        variable.slot = NewSlot({SlotKind::kVariable});
        found = m_variables.emplace(name, variable).first;
    }
    return found->second;
}

std::uint32_t Compiler::FieldSlot(const std::string& name) {
    const auto found = m_fields.find(name);
    if (found != m_fields.end()) {
        return found->second;
    }
    const auto index = static_cast<std::uint32_t>(m_script.fieldNames.size());
    const std::uint32_t slot = NewSlot({SlotKind::kField, index});
    m_script.fieldNames.push_back(name);
    m_script.fieldSlots.push_back(slot);
    m_fields.emplace(name, slot);
    return slot;
}

} // namespace

CompiledScript CompileScript(const std::string& preExpression, const std::string& expression) {
    Compiler compiler;
    return compiler.Run(preExpression, expression);
}

} // namespace quorel::host::script
