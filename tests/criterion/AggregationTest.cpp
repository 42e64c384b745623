// The aggregation operators: Aggregate against a computation of the definitions written here
// independently, and the generated script against Aggregate, bit for bit, through the host's
// script engine (what a run stores is what the query selects on).

#include "criterion/Aggregation.h"

#include "host/script/ScriptEngine.h"
#include "util/TextSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <random>

namespace quorel::criterion {
namespace {

using Inputs = std::vector<std::optional<double>>;

class TextsById final : public util::ITextSource {
public:
    std::string ResourceString(std::int16_t id) const override {
        return "T" + std::to_string(id) + " %1 %2 %3";
    }
};

// The definitions, each in the plainest form: min, max, products, sums, a sorted copy.
double Independent(const Aggregation& a, const std::vector<double>& m) {
    const double product = std::accumulate(m.begin(), m.end(), 1.0, std::multiplies<>());
    const double sum = 1 - std::accumulate(m.begin(), m.end(), 1.0,
                                           [](double p, double x) { return p * (1 - x); });
    const double weightSum = std::accumulate(a.weights.begin(), a.weights.end(), 0.0);
    switch (a.op) {
    case AggregationOperator::And:
        return *std::min_element(m.begin(), m.end());
    case AggregationOperator::Or:
        return *std::max_element(m.begin(), m.end());
    case AggregationOperator::Product:
        return product;
    case AggregationOperator::Sum:
        return sum;
    case AggregationOperator::Gamma:
        return std::pow(sum, a.gamma) * std::pow(product, 1 - a.gamma);
    case AggregationOperator::Mean:
        return std::inner_product(a.weights.begin(), a.weights.end(), m.begin(), 0.0) / weightSum;
    case AggregationOperator::Owa: {
        std::vector<double> sorted = m;
        std::sort(sorted.rbegin(), sorted.rend());
        double r = 0;
        for (std::size_t k = 0; k < sorted.size(); ++k) {
            r += a.weights[k] / weightSum * sorted[k];
        }
        return r;
    }
    }
    return NAN;
}

std::vector<Inputs> SampleRows(std::size_t width) {
    std::vector<Inputs> rows;
    std::mt19937 random(7);
    std::uniform_real_distribution<double> degree(0.0, 1.0);
    for (int i = 0; i < 200; ++i) {
        Inputs row;
        for (std::size_t k = 0; k < width; ++k) {
            row.push_back(degree(random));
        }
        rows.push_back(row);
    }
    // The ends of the range, ties and a Null in each place.
    rows.push_back(Inputs(width, 0.0));
    rows.push_back(Inputs(width, 1.0));
    rows.push_back(Inputs(width, 0.5));
    for (std::size_t k = 0; k < width; ++k) {
        Inputs row(width, 0.25);
        row[k] = std::nullopt;
        rows.push_back(row);
        Inputs edge(width, 1.0);
        edge[k] = 0.0;
        rows.push_back(edge);
    }
    return rows;
}

struct OperatorCase {
    Aggregation aggregation;
    std::size_t width;
};

void PrintTo(const OperatorCase& c, std::ostream* os) {
    *os << AggregationOperatorName(c.aggregation.op) << " of " << c.width;
}

class AggregationOperatorTest : public ::testing::TestWithParam<OperatorCase> {};

TEST_P(AggregationOperatorTest, agreesWithTheDefinitionAndTheScriptComputesTheSameDoubles) {
    const auto& [aggregation, width] = GetParam();
    ASSERT_EQ(CheckAggregation(aggregation, width, TextsById()), std::nullopt);
    std::vector<std::string> names;
    for (std::size_t k = 0; k < width; ++k) {
        names.push_back("F" + std::to_string(k));
    }
    const auto program =
        host::script::Program::Compile(AggregationScript(aggregation, names), "Val");
    ASSERT_EQ(program.FieldNames(), names);

    const std::vector<Inputs> rows = SampleRows(width);
    std::vector<host::script::Column> columns(width);
    for (const Inputs& row : rows) {
        for (std::size_t k = 0; k < width; ++k) {
            columns[k].values.push_back(row[k].value_or(NAN));
            columns[k].isNull.push_back(row[k] ? 0 : 1);
        }
    }
    std::vector<const host::script::Column*> inputs;
    for (const auto& column : columns) {
        inputs.push_back(&column);
    }
    host::script::Column output;
    program.Evaluate(inputs, output);

    ASSERT_EQ(output.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        const std::optional<double> combined = Aggregate(aggregation, rows[i]);
        const bool anyNull = std::any_of(rows[i].begin(), rows[i].end(),
                                         [](const auto& v) { return !v.has_value(); });
        ASSERT_EQ(combined.has_value(), !anyNull);
        ASSERT_EQ(output.isNull[i] != 0, anyNull);
        if (anyNull) {
            continue;
        }
        std::vector<double> m;
        for (const auto& v : rows[i]) {
            m.push_back(*v);
        }
        EXPECT_NEAR(*combined, Independent(aggregation, m), 1e-15);
        EXPECT_GE(*combined, 0.0);
        EXPECT_LE(*combined, 1.0);
        // Bit for bit: the stored degree is the one the query compares with alpha.
        EXPECT_EQ(output.values[i], *combined);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Operators, AggregationOperatorTest,
    ::testing::Values(OperatorCase{{AggregationOperator::And, 0, {}}, 3},
                      OperatorCase{{AggregationOperator::Or, 0, {}}, 3},
                      OperatorCase{{AggregationOperator::Product, 0, {}}, 2},
                      OperatorCase{{AggregationOperator::Sum, 0, {}}, 4},
                      OperatorCase{{AggregationOperator::Gamma, 0.3, {}}, 3},
                      OperatorCase{{AggregationOperator::Gamma, 0.0, {}}, 2},
                      OperatorCase{{AggregationOperator::Gamma, 1.0, {}}, 2},
                      OperatorCase{{AggregationOperator::Mean, 0, {1, 0.1, 3}}, 3},
                      OperatorCase{{AggregationOperator::Owa, 0, {0.5, 0.3, 0.15, 0.05}}, 4},
                      OperatorCase{{AggregationOperator::Owa, 0, {1, 2, 3, 4, 5}}, 5}));

TEST(AggregationOperatorNameTest, namesReadBackAndNothingElseIsAnOperator) {
    for (const auto& name : AggregationOperatorNames()) {
        const auto op = ParseAggregationOperator(name);
        ASSERT_TRUE(op) << name;
        EXPECT_EQ(AggregationOperatorName(*op), name);
    }
    EXPECT_EQ(ParseAggregationOperator("AND"), std::nullopt);
    EXPECT_EQ(ParseAggregationOperator("min"), std::nullopt);
    EXPECT_EQ(ParseAggregationOperator(""), std::nullopt);
}

struct RefusalCase {
    const char* name;
    Aggregation aggregation;
    std::size_t inputs;
    std::optional<std::string> refusal;
};

void PrintTo(const RefusalCase& c, std::ostream* os) {
    *os << c.name;
}

class CheckAggregationTest : public ::testing::TestWithParam<RefusalCase> {};

TEST_P(CheckAggregationTest, refusesParametersThatDoNotFitTheInputs) {
    const RefusalCase& c = GetParam();
    EXPECT_EQ(CheckAggregation(c.aggregation, c.inputs, TextsById()), c.refusal);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CheckAggregationTest,
    ::testing::Values(
        RefusalCase{"oneInput", {AggregationOperator::And, 0, {}}, 1, "T310 %1 %2 %3"},
        RefusalCase{"gammaAboveOne", {AggregationOperator::Gamma, 1.5, {}}, 2, "T311 1.5 %2 %3"},
        RefusalCase{"gammaNaN", {AggregationOperator::Gamma, NAN, {}}, 2, "T311 nan %2 %3"},
        RefusalCase{"gammaIgnoredByOthers", {AggregationOperator::Sum, 7, {}}, 2, std::nullopt},
        RefusalCase{"tooFewWeights", {AggregationOperator::Mean, 0, {1, 2}}, 3, "T313 mean 2 3"},
        RefusalCase{"tooManyWeights", {AggregationOperator::Owa, 0, {1, 2, 3}}, 2, "T313 owa 3 2"},
        RefusalCase{"noWeights", {AggregationOperator::Mean, 0, {}}, 2, "T313 mean 0 2"},
        RefusalCase{"zeroWeight", {AggregationOperator::Owa, 0, {1, 0}}, 2, "T312 0 %2 %3"},
        RefusalCase{"negativeWeight", {AggregationOperator::Mean, 0, {-1, 2}}, 2, "T312 -1 %2 %3"},
        RefusalCase{"overflowingWeights",
                    {AggregationOperator::Mean, 0, {1e308, 1e308}},
                    2,
                    "T312 inf %2 %3"},
        RefusalCase{"weightsOnAnd", {AggregationOperator::And, 0, {1, 1}}, 2, "T314 and %2 %3"}));

TEST(SelectAtLeastTest, keepsDegreesFromAlphaUpInAscendingIdsAndNeverNull) {
    const std::vector<std::int64_t> ids = {9, 3, 7, 1, 5};
    const std::vector<std::optional<double>> degrees = {0.5, 0.49999999999999994, std::nullopt, 1.0,
                                                        0.7};
    EXPECT_EQ(SelectAtLeast(ids, degrees, 0.5), (std::vector<std::int64_t>{1, 5, 9}));
    EXPECT_EQ(SelectAtLeast(ids, degrees, 0.0), (std::vector<std::int64_t>{1, 3, 5, 9}));
}

} // namespace
} // namespace quorel::criterion
