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

template <typename Op> int Fold(double a, double b, double& r) {
    int error = kNoError;
    r = Op::Apply(a, b, error);
    return error;
}

// The scalar semantics of an instruction, for constant folding.
int FoldInstruction(OpCode op, double a, double b, double& r) {
    switch (op) {
    case OpCode::kAdd:
        return Fold<AddOp>(a, b, r);
    case OpCode::kSubtract:
        return Fold<SubtractOp>(a, b, r);
    case OpCode::kMultiply:
        return Fold<MultiplyOp>(a, b, r);
    case OpCode::kDivide:
        return Fold<DivideOp>(a, b, r);
    case OpCode::kIntegerDivide:
        return Fold<IntegerDivideOp>(a, b, r);
    case OpCode::kMod:
        return Fold<ModOp>(a, b, r);
    case OpCode::kPower:
        return Fold<PowerOp>(a, b, r);
    case OpCode::kEqual:
        return Fold<CompareOp<std::equal_to<>>>(a, b, r);
    case OpCode::kNotEqual:
        return Fold<CompareOp<std::not_equal_to<>>>(a, b, r);
    case OpCode::kLess:
        return Fold<CompareOp<std::less<>>>(a, b, r);
    case OpCode::kGreater:
        return Fold<CompareOp<std::greater<>>>(a, b, r);
    case OpCode::kLessOrEqual:
        return Fold<CompareOp<std::less_equal<>>>(a, b, r);
    case OpCode::kGreaterOrEqual:
        return Fold<CompareOp<std::greater_equal<>>>(a, b, r);
    case OpCode::kAnd:
        return Fold<AndOp>(a, b, r);
    case OpCode::kOr:
        return Fold<OrOp>(a, b, r);
    case OpCode::kLogicalAnd:
        return Fold<LogicalAndOp>(a, b, r);
    case OpCode::kLogicalOr:
        return Fold<LogicalOrOp>(a, b, r);
    case OpCode::kNegate:
        return Fold<NegateOp>(a, b, r);
    case OpCode::kNot:
        return Fold<NotOp>(a, b, r);
    case OpCode::kLogicalNot:
        return Fold<LogicalNotOp>(a, b, r);
    default:
        return kInvalidCall; // not a value instruction: leave it to run time
    }
}

bool IsComparison(OpCode op) {
    return op >= OpCode::kEqual && op <= OpCode::kGreaterOrEqual;
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
        double value = 0.0;   // of a constant (NaN for Null)
        bool empty = false;   // the constant Empty
        bool logical = false; // only True, False or Null: a comparison, or And, Or, Not of such
    };

    struct Variable {
        std::uint32_t slot = 0;
        bool declared = false;
        // Known while it was last assigned a constant in a branch that is still open (every
        // variable starts Empty, at the top level): reads there use the constant, which lets
        // whole subexpressions fold. The features a branch runs for all hold that value.
        bool known = true;
        double value = 0.0;
        bool empty = true;
        std::uint32_t branch = 0;
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
    Operand Constant(double value, bool empty = false);
    Operand EmitBinary(OpCode op, const Operand& left, const Operand& right);
    Operand EmitUnary(OpCode op, const Operand& operand);
    std::size_t Emit(Instruction instruction);
    std::uint32_t NewSlot(Slot slot);
    std::uint32_t AllocateTemporary();
    void Release(const Operand& operand);
    Variable& FindVariable(const std::string& name);
    std::uint32_t FieldSlot(const std::string& name);
    void PatchPendingBranch(std::size_t target);
    void OpenBranch();
    void CloseBranch();
    bool IsKnown(const Variable& variable) const;
    Instruction IfOn(const Operand& condition);
    void RemoveDeadStores();

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
    std::map<std::pair<std::uint64_t, bool>, std::uint32_t> m_constants;
    std::vector<std::uint32_t> m_freeTemporaries;
    std::vector<bool> m_branchOpen{true}; // by branch number; 0 is the top level
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
    RemoveDeadStores();
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
    const std::size_t index = Emit(IfOn(condition));
    m_openIfs.push_back({line, false, index, {}});
    OpenBranch();
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
    CloseBranch();
    const std::size_t prepare = Emit({OpCode::kElseIfPrep, 0, 0, 0, 0});
    PatchPendingBranch(prepare);
    m_openIfs.back().jumpsToEnd.push_back(prepare);
    const Operand condition = ParseExpression(0);
    ExpectThen();
    Release(condition);
    m_openIfs.back().pendingBranch = Emit({OpCode::kElseIfTest, 0, condition.slot, 0, 0});
    OpenBranch();
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
    CloseBranch();
    OpenBranch();
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
    CloseBranch();
}

void Compiler::OpenBranch() {
    m_branchOpen.push_back(true);
}

void Compiler::CloseBranch() {
    // The innermost open branch is the last open number.
    for (std::size_t branch = m_branchOpen.size(); branch-- > 1;) {
        if (m_branchOpen[branch]) {
            m_branchOpen[branch] = false;
            return;
        }
    }
}

// The If's opening instruction. A condition that is a comparison, or the And of two (as in
// "[X] >= 2 And [X] <= 5"), is tested where the If opens: the comparisons' truth values and
// the And's are never stored: one or two passes over the features instead of two or four. The fused
// test takes the Then branch exactly where the truth value would be True.
Instruction Compiler::IfOn(const Operand& condition) {
    std::vector<Instruction>& code = m_script.code;
    const std::size_t n = code.size();
    Instruction test{OpCode::kIfTest};
    if (condition.temporary && n >= 1 && IsComparison(code[n - 1].op) &&
        code[n - 1].dst == condition.slot) {
        test.test = code[n - 1].op;
        test.a = code[n - 1].a;
        test.b = code[n - 1].b;
        code.pop_back();
        return test;
    }
    if (condition.temporary && n >= 3 && code[n - 1].op == OpCode::kLogicalAnd &&
        code[n - 1].dst == condition.slot) {
        const Instruction& both = code[n - 1];
        const Instruction& first = code[n - 3];
        const Instruction& second = code[n - 2];
        // The second comparison must not read the first one's truth value.
        if (IsComparison(first.op) && IsComparison(second.op) && first.dst == both.a &&
            second.dst == both.b && second.a != first.dst && second.b != first.dst) {
            test.test = first.op;
            test.a = first.a;
            test.b = first.b;
            test.test2 = second.op;
            test.c = second.a;
            test.d = second.b;
            code.resize(n - 3);
            return test;
        }
    }
    return {OpCode::kIfBegin, 0, condition.slot, 0, 0};
}

bool Compiler::IsKnown(const Variable& variable) const {
    return variable.known && m_branchOpen[variable.branch];
}

// A store whose value no later instruction can read is dropped: typically a variable assigned a
// constant, whose reads all used the constant. Later stores under a mask read the old value
// (they keep it for the features outside the mask). Variables whose initial Empty can still be
// read are listed for the reset at the start of each chunk.
void Compiler::RemoveDeadStores() {
    std::vector<Instruction>& code = m_script.code;
    std::vector<bool> needed(m_script.slots.size(), false);
    needed[m_script.resultSlot] = true;
    std::vector<bool> dead(code.size(), false);
    for (std::size_t pc = code.size(); pc-- > 0;) {
        const Instruction& instruction = code[pc];
        if (instruction.op == OpCode::kStore) {
            if (!needed[instruction.dst]) {
                dead[pc] = true;
                continue;
            }
            const bool masked = instruction.b != 0;
            needed[instruction.dst] = masked;
            needed[instruction.a] = true;
        } else {
            needed[instruction.a] = true;
            needed[instruction.b] = true;
            if (instruction.op == OpCode::kIfTest) {
                needed[instruction.c] = true;
                needed[instruction.d] = true;
            }
        }
    }
    for (std::uint32_t slot = 0; slot < m_script.slots.size(); ++slot) {
        if (needed[slot] && m_script.slots[slot].kind == SlotKind::kVariable) {
            m_script.resetSlots.push_back(slot);
        }
    }
    std::vector<std::uint32_t> newIndex(code.size() + 1);
    std::size_t kept = 0;
    for (std::size_t pc = 0; pc < code.size(); ++pc) {
        newIndex[pc] = static_cast<std::uint32_t>(kept);
        if (!dead[pc]) {
            code[kept++] = code[pc];
        }
    }
    newIndex[code.size()] = static_cast<std::uint32_t>(kept);
    code.resize(kept);
    for (Instruction& instruction : code) {
        instruction.jump = newIndex[instruction.jump]; // jumps go to control instructions
    }
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
    const std::uint32_t masked = m_openIfs.empty() ? 0 : 1;
    Emit({OpCode::kStore, variable.slot, value.slot, masked, 0});
    variable.known = value.constant;
    variable.value = value.value;
    variable.empty = value.empty;
    variable.branch = static_cast<std::uint32_t>(m_branchOpen.size() - 1);
    while (!m_branchOpen[variable.branch]) {
        --variable.branch;
    }
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
        return Constant(token.number);
    case TokenKind::kField:
        return Operand{FieldSlot(token.text)};
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
            return Constant(-1.0);
        }
        if (token.text == "false") {
            return Constant(0.0);
        }
        if (token.text == "null") {
            return Constant(kNullValue);
        }
        if (token.text == "empty") {
            return Constant(0.0, true);
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
            if (IsKnown(variable)) {
                return Constant(variable.value, variable.empty);
            }
            return Operand{variable.slot};
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

Compiler::Operand Compiler::Constant(double value, bool empty) {
    if (IsNullValue(value)) {
        value = kNullValue; // one Null
    }
    const auto key = std::make_pair(std::bit_cast<std::uint64_t>(value), empty);
    auto found = m_constants.find(key);
    if (found == m_constants.end()) {
        found = m_constants.emplace(key, NewSlot({SlotKind::kConstant, 0, value, empty})).first;
    }
    Operand operand{found->second, false, true, value, empty};
    operand.logical = value == 0.0 || value == -1.0 || IsNullValue(value);
    return operand;
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
    const bool logical = left.logical && right.logical;
    if (logical && op == OpCode::kAnd) {
        op = OpCode::kLogicalAnd;
    } else if (logical && op == OpCode::kOr) {
        op = OpCode::kLogicalOr;
    }
    if (left.constant && right.constant) {
        double value = 0.0;
        // A failing constant operation stays in the code: it fails only if a feature runs it.
        if (FoldInstruction(op, left.value, right.value, value) == kNoError) {
            return Constant(value);
        }
    }
    // The target is never an operand's slot: a failing column is checked against its operands.
    const std::uint32_t target = AllocateTemporary();
    Release(left);
    Release(right);
    Emit({op, target, left.slot, right.slot, 0});
    Operand result{target, true};
    result.logical = IsComparison(op) || op == OpCode::kLogicalAnd || op == OpCode::kLogicalOr;
    return result;
}

Compiler::Operand Compiler::EmitUnary(OpCode op, const Operand& operand) {
    if (op == OpCode::kNot && operand.logical) {
        op = OpCode::kLogicalNot;
    }
    if (operand.constant) {
        double value = 0.0;
        if (FoldInstruction(op, operand.value, 0.0, value) == kNoError) {
            return Constant(value);
        }
    }
    const std::uint32_t target = AllocateTemporary();
    Release(operand);
    Emit({op, target, operand.slot, operand.slot, 0});
    Operand result{target, true};
    result.logical = op == OpCode::kLogicalNot;
    return result;
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
