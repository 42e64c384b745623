#include "criterion/Membership.h"

#include "ScriptInterpreter.h"
#include "criterion/Parameters.h"
#include "criterion/Script.h"
#include "util/Error.h"

#include <gtest/gtest.h>

#include <ostream>

#include <bit>
#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using quorel::criterion::CompleteParameters;
using quorel::criterion::Membership;
using quorel::criterion::MembershipFunction;

struct DegreeCase {
    int kind;
    double typed[4];
    double x;
    double degree;
};

void PrintTo(const DegreeCase& c, std::ostream* os) {
    *os << "kind " << c.kind << " x=" << c.x;
}

class MembershipDegreeTest : public ::testing::TestWithParam<DegreeCase> {};

TEST_P(MembershipDegreeTest, givesTheDegreeOfTheShape) {
    const auto& c = GetParam();
    double a = c.typed[0], b = c.typed[1], cc = c.typed[2], d = c.typed[3];
    CompleteParameters(c.kind, a, b, cc, d);
    EXPECT_EQ(Membership(c.kind, c.x, a, b, cc, d), c.degree) << "x=" << c.x;
}

INSTANTIATE_TEST_SUITE_P(
    BreakPoints, MembershipDegreeTest,
    ::testing::Values(DegreeCase{1, {3, 0, 0, 0}, 3, 1}, DegreeCase{1, {3, 0, 0, 0}, 3.0000001, 0},
                      DegreeCase{1, {3, 0, 0, 0}, -3, 0}, DegreeCase{2, {0, 10, 20, 0}, 5, 0.5},
                      DegreeCase{2, {0, 10, 20, 0}, 10, 1}, DegreeCase{2, {0, 10, 20, 0}, 15, 0.5},
                      DegreeCase{2, {0, 10, 20, 0}, 20, 0}, DegreeCase{2, {0, 10, 20, 0}, 25, 0},
                      DegreeCase{2, {0, 10, 20, 0}, -1, 0}, DegreeCase{2, {0, 10, 20, 0}, 0, 0},
                      DegreeCase{3, {0, 10, 0, 0}, 10, 1}, DegreeCase{3, {0, 10, 0, 0}, 1000, 1},
                      DegreeCase{3, {0, 10, 0, 0}, -5, 0}, DegreeCase{3, {0, 10, 0, 0}, 2.5, 0.25},
                      DegreeCase{4, {0, 10, 0, 0}, 0, 1}, DegreeCase{4, {0, 10, 0, 0}, 5, 0.5},
                      DegreeCase{4, {0, 10, 0, 0}, 10, 0}, DegreeCase{4, {0, 10, 0, 0}, -3, 1},
                      DegreeCase{5, {0, 10, 20, 30}, 15, 1},
                      DegreeCase{5, {0, 10, 20, 30}, 25, 0.5},
                      DegreeCase{5, {0, 10, 20, 30}, 30, 0}, DegreeCase{5, {0, 10, 20, 30}, 31, 0},
                      DegreeCase{5, {0, 10, 20, 30}, 5, 0.5},
                      DegreeCase{5, {0, 10, 20, 30}, -1, 0}));

TEST(MembershipTest, kindZeroLeavesTheDegreeEmpty) {
    EXPECT_TRUE(std::isnan(Membership(0, 5, 0, 1, 2, 3)));
}

TEST(MembershipTest, nullValuesTakeTheElseBranchOnlyInTheSingleton) {
    EXPECT_EQ(MembershipFunction(1, 3, 1e14, 1e15, 1e16).OfNull(), 1.0);
    EXPECT_TRUE(std::isnan(MembershipFunction(5, 0, 1, 2, 3).OfNull()));
}

TEST(MembershipTest, equalNeighboursDivideByZeroForEveryValue) {
    for (const auto& p : std::vector<std::vector<double>>{{2, 0, 0, 5, 1e15},
                                                          {2, 0, 5, 5, 1e15},
                                                          {3, 5, 5, 1e14, 1e15},
                                                          {4, -1e16, -1e15, 5, 5},
                                                          {5, 0, 0, 1, 2},
                                                          {5, 0, 1, 2, 2}}) {
        try {
            Membership(static_cast<int>(p[0]), 1, p[1], p[2], p[3], p[4]);
            ADD_FAILURE() << "kind " << p[0] << " did not fail";
        } catch (const quorel::Error& e) {
            EXPECT_EQ(e.Number(), 11);
            EXPECT_EQ(e.Description(), "Division by zero");
        }
    }
}

TEST(MembershipTest, usesTheParametersAsTheScriptPrintsThem) {
    // 16 digits typed, 15 printed: the degree is that of the printed value.
    const double a = 0.1234567890123456;
    const double printed = 0.123456789012346;
    EXPECT_EQ(Membership(1, printed, a, 1e14, 1e15, 1e16), 1.0);
    EXPECT_EQ(Membership(1, a, a, 1e14, 1e15, 1e16), 0.0);
}

TEST(MembershipTest, arrayEvaluationMatchesSingleValues) {
    const MembershipFunction f(5, -2, 0.5, 7, 11.25);
    std::vector<double> x = {-3, -2, -1, 0.5, 3, 7, 9, 11.25, 12};
    std::vector<double> out(x.size());
    f.Evaluate(x.data(), out.data(), x.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
        EXPECT_EQ(out[i], f(x[i])) << x[i];
    }
    f.Evaluate(x.data(), x.data(), x.size()); // in place
    EXPECT_EQ(x, out);
}

TEST(MembershipTest, resultsBeyondTheDoubleRangeOverflow) {
    try {
        Membership(3, 0, -1e308, 1e308, 1e14, 1e15); // b - a is beyond the range
        ADD_FAILURE() << "no overflow";
    } catch (const quorel::Error& e) {
        EXPECT_EQ(e.Number(), 6);
    }
}

// Draws parameters in order (often equal or on round numbers) and values around them.
class ScriptAgreementTest : public ::testing::TestWithParam<int> {};

TEST_P(ScriptAgreementTest, degreesAgreeBitForBitWithTheScriptsStatements) {
    const int kind = GetParam();
    std::mt19937_64 random(20261123u + static_cast<unsigned>(kind));
    std::uniform_real_distribution<double> spread(-1000, 1000);
    std::uniform_int_distribution<int> pick(0, 5);
    int compared = 0;
    for (int trial = 0; trial < 300; ++trial) {
        std::vector<double> typed(4);
        for (auto& v : typed) {
            v = pick(random) == 0 ? std::round(spread(random)) : spread(random) / 7.0;
        }
        std::sort(typed.begin(), typed.end());
        double a = typed[0], b = typed[1], c = typed[2], d = typed[3];
        if (kind == 4) {
            a = typed[0];
            b = typed[1];
        }
        CompleteParameters(kind, a, b, c, d);
        const auto script = quorel::criterion::BuildPreExpression(kind, "V", a, b, c, d);
        ASSERT_TRUE(script);
        const MembershipFunction f(kind, a, b, c, d);
        std::vector<double> values = {f.A(),
                                      f.B(),
                                      f.C(),
                                      f.D(),
                                      spread(random),
                                      std::nextafter(f.A(), 1e300),
                                      std::nextafter(f.B(), -1e300),
                                      std::nextafter(f.C(), 1e300),
                                      std::nextafter(f.D(), -1e300)};
        for (int i = 0; i < 20; ++i) {
            values.push_back(spread(random));
        }
        for (const double x : values) {
            const auto expected = quorel::test::EvaluateScript(*script, "V", x);
            ASSERT_TRUE(expected) << *script;
            EXPECT_EQ(std::bit_cast<std::uint64_t>(f(x)), std::bit_cast<std::uint64_t>(*expected))
                << "kind " << kind << " x=" << x << "\n"
                << *script;
            ++compared;
        }
    }
    EXPECT_GT(compared, 5000);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ScriptAgreementTest, ::testing::Values(1, 2, 3, 4, 5));

} // namespace
