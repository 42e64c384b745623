#pragma once

// Fuzzy aggregation: several criterion fields (degrees in [0, 1]) combined feature by feature
// into one degree by an operator. Aggregate is the reference computation; AggregationScript is
// the field calculator's script that computes the very same doubles, so that a run through any
// host writes what Aggregate gives and a query selects what the run would write.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorel::host {
class ICursor;
class IFeatureClass;
} // namespace quorel::host
namespace quorel::util {
class ITextSource;
}

namespace quorel::criterion {

// Named in the interfaces and the records as "and", "or", "product", "sum", "gamma", "mean",
// "owa".
enum class AggregationOperator { And, Or, Product, Sum, Gamma, Mean, Owa };

// The operator of a name (exact, lower case); nullopt for any other text.
std::optional<AggregationOperator> ParseAggregationOperator(const std::string& name);
std::string AggregationOperatorName(AggregationOperator op);
// The names in the enumeration's order.
const std::vector<std::string>& AggregationOperatorNames();

// Whether the operator takes a gamma, weights.
bool TakesGamma(AggregationOperator op);
bool TakesWeights(AggregationOperator op);

struct Aggregation {
    AggregationOperator op = AggregationOperator::And;
    double gamma = 0;            // gamma only, in [0, 1]
    std::vector<double> weights; // mean and owa only: one per input, each > 0
};

// Text ids of the aggregation's refusals and messages.
inline constexpr std::int16_t kTextTooFewInputs = 310;
inline constexpr std::int16_t kTextGammaOutOfRange = 311;
inline constexpr std::int16_t kTextWeightsNotPositive = 312;
inline constexpr std::int16_t kTextWeightCount = 313;
inline constexpr std::int16_t kTextNoWeightsTaken = 314;
inline constexpr std::int16_t kTextInputOutOfRange = 315;
inline constexpr std::int16_t kTextNoNumericInput = 316;
inline constexpr std::int16_t kTextAggregating = 317;
inline constexpr std::int16_t kTextAggregationDone = 318;
inline constexpr std::int16_t kTextAlphaOutOfRange = 319;
inline constexpr std::int16_t kTextUnknownOperator = 334;
inline constexpr std::int16_t kTextGammaOnlyForGamma = 335;

// An operator or a gamma the command line does not take: a wrong command line (exit 64), a
// ValueError in Python. Its message is the command line's.
class AggregationUsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The aggregation of an operator's name with the gamma (nullopt: not given) and the weights given,
// as `quorel aggregate` reads its options. Throws AggregationUsageError for an unknown operator, a
// gamma missing for gamma or given to another operator. Weights that do not fit are left to
// CheckAggregation: they are a refusal of the run.
Aggregation ReadAggregation(const std::string& op, const std::optional<double>& gamma,
                            std::vector<double> weights, const util::ITextSource& texts);

// What a run needs of its parameters: at least two inputs, gamma in [0, 1] for gamma, one weight
// > 0 per input for mean and owa and none for the other operators. nullopt when fine, else the
// refusal's message.
std::optional<std::string> CheckAggregation(const Aggregation& a, std::size_t inputCount,
                                            const util::ITextSource& texts);

// The combined degree of one feature, in double precision in the order the definitions write:
//   and      the minimum            or   the maximum
//   product  m1 * m2 * ... left to right
//   sum      1 - (1 - m1) * (1 - m2) * ...
//   gamma    sum ^ gamma * product ^ (1 - gamma)
//   mean     (w1 * m1 + w2 * m2 + ...) / (w1 + w2 + ...)
//   owa      the inputs from largest to smallest, the k-th times the k-th weight divided by the
//            weights' sum, added from the largest on.
// A Null (nullopt) input gives Null. The aggregation must have passed CheckAggregation.
std::optional<double> Aggregate(const Aggregation& a,
                                std::span<const std::optional<double>> inputs);

// The field calculator's pre-expression that sets Val to Aggregate's result for the fields
// named, in that order (lines joined by CR LF); the expression is "Val". Numbers are printed so
// that they read back as the same doubles, and the operations come in Aggregate's order.
std::string AggregationScript(const Aggregation& a, const std::vector<std::string>& fields);

// The input fields' values, one column per field, one row per feature in the data's order,
// with each feature's object id (its "FID"-like field where the data have one, else its
// position).
struct AggregationInputs {
    std::vector<std::int64_t> ids;
    std::vector<std::vector<std::optional<double>>> columns;

    std::size_t FeatureCount() const { return ids.size(); }
};

// Reads the fields through the cursor. Throws quorel::Error when the cursor lacks a field or a
// value is not a number.
AggregationInputs ReadAggregationInputs(host::ICursor& cursor,
                                        const std::vector<std::string>& fields);

// A refusal naming the first input that is missing from the table or not numeric; nullopt when
// every input is a numeric field.
std::optional<std::string> CheckInputFieldsExist(const host::IFeatureClass& table,
                                                 const std::vector<std::string>& fields,
                                                 const util::ITextSource& texts);

// A refusal naming the first input field with values outside [0, 1] and how many there are;
// nullopt when every value is in range (Null is).
std::optional<std::string> CheckInputRange(const AggregationInputs& inputs,
                                           const std::vector<std::string>& fields,
                                           const util::ITextSource& texts);
// The same, reading the fields through the cursor without keeping their values (a run's check
// before it writes). Throws as ReadAggregationInputs.
std::optional<std::string> CheckInputRange(host::ICursor& cursor,
                                           const std::vector<std::string>& fields,
                                           const util::ITextSource& texts);
// The refusal for these counts of values out of range per field, if any is not 0 (the counts a
// range-checking calculator refuses with).
std::optional<std::string> InputRangeRefusal(const std::vector<std::size_t>& outside,
                                             const std::vector<std::string>& fields,
                                             const util::ITextSource& texts);

// Each feature's combined degree, in the inputs' order.
std::vector<std::optional<double>> CombinedDegrees(const Aggregation& a,
                                                   const AggregationInputs& inputs);

// The ids of the features whose combined degree is at least alpha, ascending (Null never is).
std::vector<std::int64_t> SelectAtLeast(const std::vector<std::int64_t>& ids,
                                        const std::vector<std::optional<double>>& degrees,
                                        double alpha);

} // namespace quorel::criterion
