#include "criterion/Membership.h"

#include "criterion/Parameters.h"
#include "tests/support/Thrown.h"
#include "util/Error.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using quorel::criterion::CompleteParameters;
using quorel::criterion::Membership;
using quorel::criterion::MembershipFunction;
using quorel::test::Thrown;

// The break points of each shape, the parameters as typed and then completed.
TEST(MembershipTest, givesTheDegreeOfTheShape) {
    struct Case {
        int kind;
        double typed[4];
        double x;
        double degree;
    };
    for (const Case& c : {Case{1, {3, 0, 0, 0}, 3, 1},      Case{1, {3, 0, 0, 0}, 3.0000001, 0},
                          Case{1, {3, 0, 0, 0}, -3, 0},     Case{2, {0, 10, 20, 0}, 5, 0.5},
                          Case{2, {0, 10, 20, 0}, 10, 1},   Case{2, {0, 10, 20, 0}, 15, 0.5},
                          Case{2, {0, 10, 20, 0}, 20, 0},   Case{2, {0, 10, 20, 0}, 25, 0},
                          Case{2, {0, 10, 20, 0}, -1, 0},   Case{2, {0, 10, 20, 0}, 0, 0},
                          Case{3, {0, 10, 0, 0}, 10, 1},    Case{3, {0, 10, 0, 0}, 1000, 1},
                          Case{3, {0, 10, 0, 0}, -5, 0},    Case{3, {0, 10, 0, 0}, 2.5, 0.25},
                          Case{4, {0, 10, 0, 0}, 0, 1},     Case{4, {0, 10, 0, 0}, 5, 0.5},
                          Case{4, {0, 10, 0, 0}, 10, 0},    Case{4, {0, 10, 0, 0}, -3, 1},
                          Case{5, {0, 10, 20, 30}, 15, 1},  Case{5, {0, 10, 20, 30}, 25, 0.5},
                          Case{5, {0, 10, 20, 30}, 30, 0},  Case{5, {0, 10, 20, 30}, 31, 0},
                          Case{5, {0, 10, 20, 30}, 5, 0.5}, Case{5, {0, 10, 20, 30}, -1, 0}}) {
        double a = c.typed[0], b = c.typed[1], cc = c.typed[2], d = c.typed[3];
        CompleteParameters(c.kind, a, b, cc, d);
        EXPECT_EQ(Membership(c.kind, c.x, a, b, cc, d), c.degree)
            << "kind " << c.kind << " x=" << c.x;
    }
}

TEST(MembershipTest, kindZeroLeavesTheDegreeEmpty) {
    EXPECT_TRUE(std::isnan(Membership(0, 5, 0, 1, 2, 3)));
}

TEST(MembershipTest, equalNeighboursDivideByZeroForEveryValue) {
    for (const auto& p : std::vector<std::vector<double>>{{2, 0, 0, 5, 1e15},
                                                          {2, 0, 5, 5, 1e15},
                                                          {3, 5, 5, 1e14, 1e15},
                                                          {4, -1e16, -1e15, 5, 5},
                                                          {5, 0, 0, 1, 2},
                                                          {5, 0, 1, 2, 2}}) {
        const quorel::Error e =
            Thrown([&] { Membership(static_cast<int>(p[0]), 1, p[1], p[2], p[3], p[4]); });
        EXPECT_EQ(e.Number(), 11) << "kind " << p[0];
        EXPECT_EQ(e.Description(), "Division by zero");
    }
}

// out may be x. (The values themselves are held to the script by MembershipPropertyTest.)
TEST(MembershipTest, evaluationInPlaceGivesTheSameDegrees) {
    const MembershipFunction f(5, -2, 0.5, 7, 11.25);
    std::vector<double> x = {-3, -2, -1, 0.5, 3, 7, 9, 11.25, 12};
    std::vector<double> out(x.size());
    f.Evaluate(x.data(), out.data(), x.size());
    f.Evaluate(x.data(), x.data(), x.size());
    EXPECT_EQ(x, out);
}

TEST(MembershipTest, resultsBeyondTheDoubleRangeOverflow) {
    // b - a is beyond the range.
    EXPECT_EQ(Thrown([] { Membership(3, 0, -1e308, 1e308, 1e14, 1e15); }).Number(), 6);
}

} // namespace
