// The engine run on every kind's generated script gives, bit for bit, the degrees of the direct
// evaluation, over random parameters and the values every engine is held to (break points and
// their neighbours, Null, infinite, huge and tiny).

#include "criterion/Membership.h"
#include "criterion/Parameters.h"
#include "criterion/Script.h"
#include "host/script/ScriptEngine.h"
#include "tests/support/DegreeCases.h"
#include "tests/support/Thrown.h"
#include "util/Error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace quorel::host::script {
namespace {

class MembershipPropertyTest : public testing::TestWithParam<int> {};

// A parameter with a random scale and number of digits (some beyond 15, so that printing them
// into the script rounds them).
double RandomParameter(std::mt19937_64& random) {
    std::uniform_int_distribution<int> scale(-3, 7);
    std::uniform_int_distribution<int> style(0, 3);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const double magnitude = std::pow(10.0, scale(random));
    const double raw = unit(random) * magnitude;
    switch (style(random)) {
    case 0:
        return std::round(raw);
    case 1:
        return std::round(raw * 100.0) / 100.0;
    default:
        return raw;
    }
}

TEST_P(MembershipPropertyTest, engineGivesTheDirectDegreesBitForBit) {
    const int kind = GetParam();
    std::mt19937_64 random(20240 + kind);
    int checked = 0;
    for (int trial = 0; trial < 200; ++trial) {
        double p[4];
        for (double& value : p) {
            value = RandomParameter(random);
        }
        std::sort(p, p + 4);
        const test::DegreeCase c = test::Completed({kind, p[0], p[1], p[2], p[3]});
        if (!criterion::CheckParameterOrder(c.a, c.b, c.c, c.d)) {
            continue;
        }
        SCOPED_TRACE(::testing::PrintToString(c));
        const Program program =
            Program::Compile(*criterion::BuildPreExpression(kind, "VALUE", c.a, c.b, c.c, c.d),
                             criterion::kCalculatorExpression);
        Column input;
        input.values = test::DegreeValues(c);
        input.isNull.assign(input.values.size(), 0);
        input.isNull[2] = 1;
        Column output;
        try {
            test::ScriptDegree(c, 1.0);
        } catch (const Error& error) {
            // Equal neighbours divide by zero: the engine fails the same way.
            EXPECT_EQ(quorel::test::Thrown([&] { program.Evaluate({&input}, output); }).Number(),
                      error.Number());
            continue;
        }
        program.Evaluate({&input}, output);
        for (std::size_t i = 0; i < input.size(); ++i) {
            const auto want = test::ScriptDegree(
                c, input.isNull[i] != 0 ? std::nullopt : std::optional(input.values[i]));
            ASSERT_TRUE(want ? output.isNull[i] == 0 && test::SameBits(output.values[i], *want)
                             : output.isNull[i] != 0)
                << "x " << input.values[i] << " null " << int(input.isNull[i]) << ": engine "
                << output.values[i] << " (null " << int(output.isNull[i]) << "), direct "
                << want.value_or(NAN);
        }
        ++checked;
    }
    EXPECT_GT(checked, 50);
}

INSTANTIATE_TEST_SUITE_P(Kinds, MembershipPropertyTest, testing::Range(1, 6));

} // namespace
} // namespace quorel::host::script
