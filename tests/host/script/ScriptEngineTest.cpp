#include "host/script/ScriptEngine.h"

#include "util/Error.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quorel::host::script {
namespace {

using quorel::test::Thrown;

using Maybe = std::optional<double>; // std::nullopt stands for Null

Column MakeColumn(const std::vector<Maybe>& values) {
    Column column;
    column.resize(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        column.isNull[i] = values[i] ? 0 : 1;
        column.values[i] = values[i].value_or(12345.0); // garbage under Null must not matter
    }
    return column;
}

std::vector<Maybe> ToMaybe(const Column& column) {
    std::vector<Maybe> result;
    for (std::size_t i = 0; i < column.size(); ++i) {
        result.push_back(column.isNull[i] != 0 ? Maybe{} : Maybe{column.values[i]});
    }
    return result;
}

// Runs a script over named field columns (all of the same length).
std::vector<Maybe> RunScript(const std::string& script, const std::string& expression,
                             const std::map<std::string, std::vector<Maybe>>& fields,
                             std::size_t count = 0) {
    const Program program = Program::Compile(script, expression);
    std::vector<Column> columns;
    for (const std::string& name : program.FieldNames()) {
        columns.push_back(MakeColumn(fields.at(name)));
    }
    std::vector<const Column*> inputs;
    for (const Column& column : columns) {
        inputs.push_back(&column);
    }
    Column output;
    output.resize(count);
    program.Evaluate(inputs, output);
    return ToMaybe(output);
}

Maybe RunOne(const std::string& script, const std::string& expression = "Val") {
    return RunScript(script, expression, {}, 1).at(0);
}

int ErrorNumber(const std::string& script, const std::map<std::string, std::vector<Maybe>>& fields,
                std::size_t count = 1) {
    try {
        RunScript(script, "Val", fields, count);
    } catch (const Error& error) {
        return error.Number();
    }
    return 0;
}

std::string Literal(const Maybe& value) {
    if (!value) {
        return "Null";
    }
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "(%.17g)", *value);
    return buffer;
}

// Each operator on two operands, computed once folded from literals and once over columns: both
// roads must give the same value, Null or error.
struct OperatorCase {
    const char* op;
    Maybe left;
    Maybe right;
    Maybe expected;
    int error = 0;
};

void PrintTo(const OperatorCase& c, std::ostream* os) {
    *os << ::testing::PrintToString(c.left) << " " << c.op << " "
        << ::testing::PrintToString(c.right);
}

class OperatorTest : public testing::TestWithParam<OperatorCase> {};

TEST_P(OperatorTest, sameResultFoldedAndOverColumns) {
    const OperatorCase& c = GetParam();
    const std::string folded =
        std::string("Val = ") + Literal(c.left) + " " + c.op + " " + Literal(c.right);
    const std::string columns = std::string("Val = [L] ") + c.op + " [R]";
    for (const std::string& script : {folded, columns}) {
        SCOPED_TRACE(script);
        const std::map<std::string, std::vector<Maybe>> fields = {{"L", {c.left}},
                                                                  {"R", {c.right}}};
        if (c.error != 0) {
            EXPECT_EQ(ErrorNumber(script, fields), c.error);
            continue;
        }
        const Maybe result = RunScript(script, "Val", fields, 1).at(0);
        ASSERT_EQ(result.has_value(), c.expected.has_value());
        if (result) {
            EXPECT_EQ(*result, *c.expected);
            EXPECT_EQ(std::signbit(*result), std::signbit(*c.expected));
        }
    }
}

const Maybe kNull;

INSTANTIATE_TEST_SUITE_P(
    Operators, OperatorTest,
    testing::Values(
        OperatorCase{"^", 2, -2, 0.25}, OperatorCase{"\\", -7, 2, -3},
        OperatorCase{"\\", 7.5, 2, 4}, OperatorCase{"\\", 6.5, 2, 3},     // ties round to even
        OperatorCase{"Mod", -7, 3, -1}, OperatorCase{"Mod", 5.5, 2.5, 0}, // 6 Mod 2
        OperatorCase{"<>", 3, 3, 0}, OperatorCase{">=", 2, 3, 0}, OperatorCase{"And", 5, 3, 1},
        OperatorCase{"Or", 5, 3, 7}, OperatorCase{"And", -1, 0, 0}, OperatorCase{"Or", -1, 0, -1},
        // Null: arithmetic and comparisons give Null; And and Or decide when the other side can.
        OperatorCase{"+", kNull, 1, kNull}, OperatorCase{"/", kNull, 0, kNull},
        OperatorCase{"\\", 1, kNull, kNull}, OperatorCase{"=", kNull, kNull, kNull},
        OperatorCase{"<", 1, kNull, kNull}, OperatorCase{"And", kNull, 0, 0},
        OperatorCase{"And", -1, kNull, kNull}, OperatorCase{"Or", kNull, -1, -1},
        OperatorCase{"Or", 0, kNull, kNull}, OperatorCase{"Or", kNull, kNull, kNull},
        // Errors.
        OperatorCase{"/", 1, 0, {}, 11}, OperatorCase{"/", -1, 0, {}, 11},
        OperatorCase{"/", 0, 0, {}, 6}, OperatorCase{"\\", 1, 0, {}, 11},
        OperatorCase{"Mod", 5, 0.4, {}, 11}, OperatorCase{"*", 1E308, 10, {}, 6},
        OperatorCase{"^", -8, 0.5, {}, 5}, OperatorCase{"\\", 3E9, 1, {}, 6},
        OperatorCase{"And", 3E9, 1, {}, 6}));

TEST(ScriptEngineTest, expressionsFollowPrecedenceAndValueRules) {
    for (const auto& [expression, expected] :
         {std::pair{"2 ^ 3 ^ 2", Maybe{64}}, std::pair{"-2 ^ 2", Maybe{-4}},
          std::pair{"10 --5", Maybe{15}}, std::pair{"2 * -3", Maybe{-6}}, std::pair{"+4", Maybe{4}},
          std::pair{"7 \\ 2 * 2", Maybe{1}}, std::pair{"1 + 10 \\ 3", Maybe{4}},
          std::pair{"2 * 3 Mod 4", Maybe{2}}, std::pair{"1 + 7 Mod 4", Maybe{4}},
          std::pair{"10 \\ 3 Mod 2", Maybe{1}}, std::pair{"Not 1 = 2", Maybe{-1}},
          std::pair{"Not 0", Maybe{-1}}, std::pair{"Not 5", Maybe{-6}},
          std::pair{"1 < 2 And 2 < 1 Or 3 = 3", Maybe{-1}}, std::pair{".5 + 1.25", Maybe{1.75}},
          std::pair{"True + True", Maybe{-2}}, std::pair{"False", Maybe{0}},
          std::pair{"Not Null", kNull}, std::pair{"-Null", kNull}, std::pair{"Empty + 1", Maybe{1}},
          std::pair{"Empty = 0", Maybe{-1}}, std::pair{"Empty", kNull}, std::pair{"Null", kNull},
          // A variable never set is Empty: 0 in arithmetic, and -Empty is 0, not -0.
          std::pair{"Unset + 3", Maybe{3}}, std::pair{"-Unset", Maybe{0.0}}}) {
        const Maybe result = RunOne(std::string("Val = ") + expression);
        ASSERT_EQ(result.has_value(), expected.has_value()) << expression;
        if (result) {
            EXPECT_EQ(*result, *expected) << expression;
            EXPECT_EQ(std::signbit(*result), std::signbit(*expected)) << expression;
        }
    }
}

TEST(ScriptEngineTest, keywordsAndVariablesIgnoreCaseAndCommentsAreSkipped) {
    const std::string script = "' first line is a comment\r\n"
                               "REM so is this one\r\n"
                               "DIM val, Remark ' a Dim list\r\n"
                               "\tremark   =   [X]  *  2\r\n"
                               "IF REMARK > 3 THEN\r\n"
                               "  rem inside\r\n"
                               "  VAL = remark\r\n"
                               "eLsE\r\n"
                               "  Val = 0 ' trailing comment\r\n"
                               "END   IF  ";
    EXPECT_EQ(RunScript(script, "val", {{"X", {1, 2, kNull}}}),
              (std::vector<Maybe>{0.0, 4.0, 0.0}));
}

// Values assigned inside a branch hold for its features only, in every chunk, whether or not
// the chunk has features that take the branch.
TEST(ScriptEngineTest, assignmentsInBranchesKeepOtherFeaturesValues) {
    const std::string script = "A = 5\n"
                               "If [X] > 0 Then\n"
                               "  A = 7\n"
                               "  B = A * 2\n"
                               "ElseIf [X] > -5 Then\n"
                               "  C = B\n"
                               "End If\n"
                               "If [X] > 0 Then\n"
                               "  Val = A + B\n"
                               "ElseIf [X] = -1 Then\n"
                               "  Val = A + C\n"
                               "End If";
    std::vector<Maybe> xs(1300, 1.0);
    std::fill(xs.begin() + 600, xs.end(), -1.0); // the second and third chunks never take Then
    xs[1299] = -9.0;
    std::vector<Maybe> expected(1300, 21.0);
    std::fill(expected.begin() + 600, expected.end(), 5.0); // A kept, C Empty counts as 0
    expected[1299] = kNull;
    EXPECT_EQ(RunScript(script, "Val", {{"X", xs}}), expected);
    EXPECT_EQ(RunScript(script, "C", {{"X", xs}}).at(700), kNull); // Empty copied stays Empty
}

TEST(ScriptEngineTest, statementsOnlyFailForFeaturesThatRunThem) {
    const std::string guarded = "If [X] <> 0 Then\nVal = 1 / [X]\nEnd If";
    EXPECT_EQ(RunScript(guarded, "Val", {{"X", {2.0, 0.0, 4.0}}}),
              (std::vector<Maybe>{0.5, kNull, 0.25}));
    // A failing constant statement in a branch no feature takes is no failure either.
    EXPECT_EQ(RunScript("If [X] > 5 Then\nA = 1 / 0\nEnd If\nVal = 1", "Val", {{"X", {1.0}}}),
              (std::vector<Maybe>{1.0}));
    EXPECT_EQ(ErrorNumber("A = 1 / 0\nVal = 1", {}, 1), 11);
    EXPECT_EQ(ErrorNumber("A = 1 / 0\nVal = 1", {}, 0), 0); // no feature, no run
}

TEST(ScriptEngineTest, errorIsTheOneOfTheFirstFailingFeature) {
    const std::string script = "A = 1 / [X]\nB = [Y] * 1E+300\nVal = A";
    std::vector<Maybe> xs(700, 1.0);
    std::vector<Maybe> ys(700, 1.0);
    xs[600] = 0.0;    // division by zero at the first statement, late feature
    ys[300] = 1E+300; // overflow at the second statement, earlier feature
    EXPECT_EQ(ErrorNumber(script, {{"X", xs}, {"Y", ys}}, 700), 6);
    ys[300] = 1.0;
    const Error error = Thrown([&] { RunScript(script, "Val", {{"X", xs}, {"Y", ys}}); });
    EXPECT_EQ(error.Number(), error_number::kDivisionByZero);
    EXPECT_EQ(error.Description(), "Division by zero");
}

TEST(ScriptEngineTest, fieldsAreListedOnceInOrderOfFirstUseAndCaseSensitive) {
    const Program program =
        Program::Compile("A = [Slope] + [POP]\nB = [pop] * [Slope]", "A + B + [ALT]");
    EXPECT_EQ(program.FieldNames(), (std::vector<std::string>{"Slope", "POP", "pop", "ALT"}));
}

TEST(ScriptEngineTest, longFlatScriptsAndExpressionsWork) {
    std::string sum = "Val = 0";
    for (int i = 0; i < 20000; ++i) {
        sum += " + 1";
    }
    EXPECT_EQ(RunScript(sum, "Val", {{"X", {}}}, 1).at(0), 20000.0);
    std::string lines;
    for (int i = 0; i < 1000; ++i) {
        lines += "If [X] > " + std::to_string(i) + " Then\nVal = Val + 1\nEnd If\n";
    }
    EXPECT_EQ(RunScript(lines, "Val", {{"X", {10.5, -1.0}}}), (std::vector<Maybe>{11.0, kNull}));
}

// Syntax errors: the number, and the line in the description.
TEST(ScriptEngineTest, syntaxErrorsNameTheLine) {
    const std::vector<std::pair<int, std::vector<const char*>>> byLine = {
        {1,
         {"Val = (1 + 2", "If [X] > 1\nVal=1\nEnd If", "End If", "ElseIf 1 Then",
          "If 1 Then Val = 2", "Dim a, b, a", "Dim If", "Dim x(3)", "Dim", "Val = \"x\"",
          "Val = Abs(1)", "For i = 1 To 3", "Val = 1 : Val = 2"}},
        {1,
         {"Val = 1 Xor 2", "Val = 1 &", "Val = 1E", "Val = 1E+999", "Val = 5x", "Val = [X",
          "Val = []", "Val 1", "Val", "\xC3\xA9 = 1", "Val = 1 Rem no", "Val = 1 _\n+ 2",
          "Val = Not"}},
        {2,
         {"dim Val\r\nVal = 1 +\r\n", "Val = 1\nIf 1 Then\nVal = 2\n", "\nElse",
          "If 1 Then\nElse If 1 Then\nEnd If\nEnd If", "If 1 Then\nEndIf", "Dim A\ndim a",
          "Val = 1\rVal = )"}},
        {3,
         {"If 1 Then\nElse\nElse\nEnd If", "If 1 Then\nElse\nElseIf 1 Then\nEnd If",
          "Val = 1\r\n\r\nVal = )"}},
        {4, {"Val = 1\n\n\n  Val = = 2"}}};
    for (const auto& [line, scripts] : byLine) {
        for (const char* script : scripts) {
            SCOPED_TRACE(::testing::PrintToString(std::string(script)));
            const Error error = Thrown([&] { Program::Compile(script, "Val"); });
            EXPECT_EQ(error.Number(), error_number::kSyntaxError);
            EXPECT_NE(error.Description().find("line " + std::to_string(line)), std::string::npos)
                << error.Description();
        }
    }
}

// Hostile nesting is a syntax error, not a stack overflow; reasonable nesting compiles.
TEST(ScriptEngineTest, deepNestingIsRefusedWithoutCrashing) {
    const auto repeat = [](const std::string& piece, int times) {
        std::string text;
        for (int i = 0; i < times; ++i) {
            text += piece;
        }
        return text;
    };
    const int hostile = 200000;
    for (const std::string& script :
         {"Val = " + repeat("(", hostile) + "1" + repeat(")", hostile),
          "Val = " + repeat("-", hostile) + "1", "Val = " + repeat("Not ", hostile) + "1",
          "Val = 2" + repeat(" ^ -2", hostile),
          repeat("If 1 Then\n", hostile) + repeat("End If\n", hostile)}) {
        EXPECT_THROW(Program::Compile(script, "Val"), Error);
    }
    EXPECT_EQ(RunOne("Val = " + repeat("(", 150) + "1" + repeat(")", 150)), 1.0);
    EXPECT_EQ(RunOne("Val = " + repeat("-", 150) + "1"), 1.0);
    EXPECT_EQ(RunScript(repeat("If [X] > 0 Then\n", 150) + "Val = 7\n" + repeat("End If\n", 150),
                        "Val", {{"X", {1.0, 0.0}}}),
              (std::vector<Maybe>{7.0, kNull}));
}

} // namespace
} // namespace quorel::host::script
