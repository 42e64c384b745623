// The generated scripts, text for text: the field calculator runs exactly these, so their blanks,
// their empty line, their number printing and the lack of a line end after the last line matter.

#include "criterion/Script.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

struct ScriptCase {
    const char* name;
    int kind;
    double a, b, c, d; // completed, as the run hands them over
    const char* field;
    std::optional<std::string> script; // lines joined by CR LF
};

void PrintTo(const ScriptCase& c, std::ostream* os) {
    *os << c.name;
}

class BuildPreExpressionTest : public ::testing::TestWithParam<ScriptCase> {};

TEST_P(BuildPreExpressionTest, writesTheScriptOfTheKind) {
    const ScriptCase& c = GetParam();
    EXPECT_EQ(quorel::criterion::BuildPreExpression(c.kind, c.field, c.a, c.b, c.c, c.d), c.script);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, BuildPreExpressionTest,
    ::testing::Values(
        // The field name goes between brackets as it is, even with a bracket or a blank in it.
        ScriptCase{"singletonWithAnUnescapedField", 1, 3, 1e14, 1e15, 1e16, "a]b c",
                   "dim Val \r\nif [a]b c]<>3 then\r\nVal=0\r\nelse\r\n Val=1 \r\nend if"},
        ScriptCase{"triangle", 2, 0, 10, 20, 1e15, "SLOPE",
                   "dim Val \r\ndim Fac \r\ndim A \r\nA= (1/(10 -0))\r\nDim B \r\n"
                   "B= (1/(10 -20))\r\nif [SLOPE] < 0 then \r\nVal=0\r\nend if\r\n"
                   "if [SLOPE] >= 0 and  [SLOPE] < 10 then\r\nFac =1-(10* A)\r\n"
                   "Val= ([SLOPE]*A)+ Fac\r\nend if\r\nif [SLOPE] = 10 then \r\n Val =1\r\n"
                   "end if\r\nif [SLOPE] > 10 and  [SLOPE] <= 20 then \r\nFac =1-(10*B)\r\n"
                   "Val= ([SLOPE]*B)+ Fac\r\n end if \r\nif [SLOPE] > 20 then \r\nVal=0\r\n"
                   "end if "},
        // Periods and minus signs whatever the user's settings; the completed c printed too.
        ScriptCase{"risingRampWithPeriodsAndMinusSigns", 3, -2.5, 0.125, 1e14, 1e15, "ALT",
                   "dim Val \r\ndim Fac \r\ndim A \r\nA= (1/(0.125 --2.5))\r\nDim B \r\n"
                   "B= (1/(0.125 -100000000000000))\r\nif [ALT] <= -2.5 then \r\nVal=0\r\n"
                   " end if \r\nif [ALT] >=-2.5 and [ALT] <=0.125 then \r\n"
                   "Fac =1-(0.125* A)\r\nVal= ([ALT]*A)+ Fac\r\nend if\r\n"
                   "if [ALT] >=0.125 then \r\n Val =1\r\nend if "},
        ScriptCase{"fallingRampUsesCAndD", 4, -1e16, -1e15, 0, 10, "D",
                   "dim Val \r\ndim Fac \r\ndim A \r\nA= (1/(0 -10))\r\ndim B \r\n"
                   "B= (1/(-1E+15 -0))\r\nif [D] <= 0 then \r\nVal=1\r\nend if \r\n"
                   "if [D] >= 0 and [D] <= 10 then \r\nFac =1-(0* A)\r\nVal= ([D]*A)+ Fac\r\n"
                   "end if \r\nif [D] >= 10 then \r\n Val =0\r\nend if "},
        ScriptCase{"trapezoidWithItsEmptyLine", 5, 0, 10, 20, 30, "P",
                   "dim Val \r\ndim Fac \r\ndim A \r\nA= (1/(10 -0))\r\ndim B \r\n"
                   "B= (1/(20 -30))\r\nif [P] <= 0 then \r\n Val=0\r\n end if\r\n"
                   "if [P] >= 0 and [P] <= 10 then \r\nFac =1-(10* A)\r\nVal= ([P]*A)+ Fac\r\n"
                   "end if\r\nif [P] >= 10 and [P] <= 20 then\r\n Val =1\r\nend if\r\n"
                   "if [P] >= 20 and [P] <= 30 then\r\n\r\nFac =1-(20*B)\r\n"
                   "Val= ([P]*B)+ Fac\r\nend if\r\nif [P] > 30 then\r\nVal=0\r\nend if  "},
        ScriptCase{"noneWithoutAKind", 0, 0, 1, 2, 3, "X", std::nullopt},
        ScriptCase{"noneForAnUnknownKind", 6, 0, 1, 2, 3, "X", std::nullopt},
        ScriptCase{"noneForANegativeKind", -1, 0, 1, 2, 3, "X", std::nullopt}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

} // namespace
