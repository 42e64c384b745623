// The engine run on every kind's generated script gives, bit for bit, the degrees of the direct
// evaluation, over random parameters and values (break points, their neighbours, Nulls).

#include "criterion/Membership.h"
#include "criterion/Parameters.h"
#include "criterion/Script.h"
#include "host/script/ScriptEngine.h"
#include "util/Error.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
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

std::vector<double> RandomValues(std::mt19937_64& random, const criterion::MembershipFunction& f,
                                 std::vector<std::uint8_t>& isNull) {
    std::vector<double> values;
    const double low = std::min({f.A(), f.B(), f.C(), f.D()});
    for (const double point : {f.A(), f.B(), f.C(), f.D()}) {
        if (std::fabs(point) >= 1E14) {
            continue; // a completion value: far from the data
        }
        values.push_back(point);
        values.push_back(std::nextafter(point, -INFINITY));
        values.push_back(std::nextafter(point, INFINITY));
    }
    const double high = std::max({f.A(), f.B(), f.C(), f.D()}) < 1E14
                            ? std::max({f.A(), f.B(), f.C(), f.D()})
                            : std::max(f.A(), f.B()) + 1.0;
    const double from = (low > -1E14 ? low : std::min(f.C(), f.D())) - 1.0;
    std::uniform_real_distribution<double> spread(from - (high - from) / 4,
                                                  high + (high - from) / 4);
    while (values.size() < 1500) {
        values.push_back(spread(random));
    }
    values.push_back(std::numeric_limits<double>::infinity());
    values.push_back(-std::numeric_limits<double>::infinity());
    std::shuffle(values.begin(), values.end(), random);
    isNull.assign(values.size(), 0);
    for (std::size_t i = 0; i < values.size(); i += 37) {
        isNull[i] = 1;
    }
    return values;
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
        double a = p[0], b = p[1], c = p[2], d = p[3];
        criterion::CompleteParameters(kind, a, b, c, d);
        if (!criterion::CheckParameterOrder(a, b, c, d)) {
            continue;
        }
        const Program program =
            Program::Compile(*criterion::BuildPreExpression(kind, "VALUE", a, b, c, d),
                             criterion::kCalculatorExpression);
        std::optional<criterion::MembershipFunction> direct;
        try {
            direct.emplace(kind, a, b, c, d);
        } catch (const Error& error) {
            // Equal neighbours divide by zero: the engine fails the same way on any feature.
            Column one;
            one.resize(1);
            Column out;
            try {
                program.Evaluate({&one}, out);
                ADD_FAILURE() << "no error for parameters " << a << " " << b << " " << c << " "
                              << d;
            } catch (const Error& engineError) {
                EXPECT_EQ(engineError.Number(), error.Number());
            }
            continue;
        }
        Column input;
        input.values = RandomValues(random, *direct, input.isNull);
        std::vector<double> expected(input.size());
        direct->Evaluate(input.values.data(), expected.data(), input.size());
        Column output;
        program.Evaluate({&input}, output);
        for (std::size_t i = 0; i < input.size(); ++i) {
            const double want = input.isNull[i] != 0 ? direct->OfNull() : expected[i];
            const bool same =
                std::isnan(want)
                    ? output.isNull[i] != 0
                    : output.isNull[i] == 0 && std::bit_cast<std::uint64_t>(output.values[i]) ==
                                                   std::bit_cast<std::uint64_t>(want);
            ASSERT_TRUE(same) << "kind " << kind << " x " << input.values[i] << " null "
                              << int(input.isNull[i]) << " parameters " << a << " " << b << " " << c
                              << " " << d << ": engine " << output.values[i] << " (null "
                              << int(output.isNull[i]) << "), direct " << want;
        }
        ++checked;
    }
    EXPECT_GT(checked, 50);
}

INSTANTIATE_TEST_SUITE_P(Kinds, MembershipPropertyTest, testing::Range(1, 6));

} // namespace
} // namespace quorel::host::script
