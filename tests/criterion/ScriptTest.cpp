#include "criterion/Script.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using quorel::criterion::BuildPreExpression;

std::string Join(const std::vector<std::string>& lines) {
    std::string text;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        text += (i ? "\r\n" : "") + lines[i];
    }
    return text;
}

TEST(BuildPreExpressionTest, singletonScript) {
    EXPECT_EQ(*BuildPreExpression(1, "POP", 3, 1e14, 1e15, 1e16),
              Join({"dim Val ", "if [POP]<>3 then", "Val=0", "else", " Val=1 ", "end if"}));
}

TEST(BuildPreExpressionTest, triangleScript) {
    EXPECT_EQ(*BuildPreExpression(2, "SLOPE", 0, 10, 20, 1e15),
              Join({"dim Val ",
                    "dim Fac ",
                    "dim A ",
                    "A= (1/(10 -0))",
                    "Dim B ",
                    "B= (1/(10 -20))",
                    "if [SLOPE] < 0 then ",
                    "Val=0",
                    "end if",
                    "if [SLOPE] >= 0 and  [SLOPE] < 10 then",
                    "Fac =1-(10* A)",
                    "Val= ([SLOPE]*A)+ Fac",
                    "end if",
                    "if [SLOPE] = 10 then ",
                    " Val =1",
                    "end if",
                    "if [SLOPE] > 10 and  [SLOPE] <= 20 then ",
                    "Fac =1-(10*B)",
                    "Val= ([SLOPE]*B)+ Fac",
                    " end if ",
                    "if [SLOPE] > 20 then ",
                    "Val=0",
                    "end if "}));
}

TEST(BuildPreExpressionTest, risingRampScriptPrintsTheCompletedC) {
    EXPECT_EQ(*BuildPreExpression(3, "ALT", 0, 10, 1e14, 1e15),
              Join({"dim Val ", "dim Fac ", "dim A ", "A= (1/(10 -0))", "Dim B ",
                    "B= (1/(10 -100000000000000))", "if [ALT] <= 0 then ", "Val=0", " end if ",
                    "if [ALT] >=0 and [ALT] <=10 then ", "Fac =1-(10* A)", "Val= ([ALT]*A)+ Fac",
                    "end if", "if [ALT] >=10 then ", " Val =1", "end if "}));
}

TEST(BuildPreExpressionTest, fallingRampScriptUsesCAndD) {
    EXPECT_EQ(*BuildPreExpression(4, "D", -1e16, -1e15, 0, 10),
              Join({"dim Val ", "dim Fac ", "dim A ", "A= (1/(0 -10))", "dim B ",
                    "B= (1/(-1E+15 -0))", "if [D] <= 0 then ", "Val=1", "end if ",
                    "if [D] >= 0 and [D] <= 10 then ", "Fac =1-(0* A)", "Val= ([D]*A)+ Fac",
                    "end if ", "if [D] >= 10 then ", " Val =0", "end if "}));
}

TEST(BuildPreExpressionTest, trapezoidScriptKeepsItsEmptyLineAndTrailingBlanks) {
    EXPECT_EQ(*BuildPreExpression(5, "P", 0, 10, 20, 30), Join({"dim Val ",
                                                                "dim Fac ",
                                                                "dim A ",
                                                                "A= (1/(10 -0))",
                                                                "dim B ",
                                                                "B= (1/(20 -30))",
                                                                "if [P] <= 0 then ",
                                                                " Val=0",
                                                                " end if",
                                                                "if [P] >= 0 and [P] <= 10 then ",
                                                                "Fac =1-(10* A)",
                                                                "Val= ([P]*A)+ Fac",
                                                                "end if",
                                                                "if [P] >= 10 and [P] <= 20 then",
                                                                " Val =1",
                                                                "end if",
                                                                "if [P] >= 20 and [P] <= 30 then",
                                                                "",
                                                                "Fac =1-(20*B)",
                                                                "Val= ([P]*B)+ Fac",
                                                                "end if",
                                                                "if [P] > 30 then",
                                                                "Val=0",
                                                                "end if  "}));
}

TEST(BuildPreExpressionTest, printsNumbersWithPeriodsAndNegativeSigns) {
    const auto script = *BuildPreExpression(2, "X", -2.5, 0.125, 1e-5, 1e15);
    EXPECT_NE(script.find("A= (1/(0.125 --2.5))"), std::string::npos);
    EXPECT_NE(script.find("B= (1/(0.125 -1E-05))"), std::string::npos);
}

TEST(BuildPreExpressionTest, insertsTheFieldNameWithoutEscaping) {
    const auto script = *BuildPreExpression(1, "a]b c", 1, 2, 3, 4);
    EXPECT_NE(script.find("if [a]b c]<>1 then"), std::string::npos);
}

TEST(BuildPreExpressionTest, noScriptWithoutAKind) {
    EXPECT_FALSE(BuildPreExpression(0, "X", 0, 1, 2, 3));
    EXPECT_FALSE(BuildPreExpression(6, "X", 0, 1, 2, 3));
    EXPECT_FALSE(BuildPreExpression(-1, "X", 0, 1, 2, 3));
}

TEST(BuildPreExpressionTest, noLineEndAfterTheLastLine) {
    for (int kind = 1; kind <= 5; ++kind) {
        const auto script = *BuildPreExpression(kind, "X", 0, 1, 2, 3);
        EXPECT_NE(script.back(), '\n') << kind;
        EXPECT_EQ(script.find("\n\n"), std::string::npos) << kind; // only CR LF pairs
    }
}

} // namespace
