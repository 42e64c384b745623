#include "criterion/Aggregation.h"

#include "criterion/Preview.h"
#include "criterion/Script.h"
#include "host/api/Host.h"
#include "host/api/Selection.h"
#include "util/Error.h"
#include "util/TextSource.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <functional>
#include <utility>

namespace quorel::criterion {
namespace {

constexpr const char* kSource = "Aggregation";

// The shortest text that reads back as the same double: the script's literals must be the very
// doubles Aggregate uses.
std::string Literal(double value) {
    std::array<char, 32> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return std::string(buffer.data(), result.ptr);
}

double WeightSum(const std::vector<double>& weights) {
    double sum = 0;
    for (const double w : weights) {
        sum += w;
    }
    return sum;
}

} // namespace

const std::vector<std::string>& AggregationOperatorNames() {
    static const std::vector<std::string> names = {"and",   "or",   "product", "sum",
                                                   "gamma", "mean", "owa"};
    return names;
}

std::optional<AggregationOperator> ParseAggregationOperator(const std::string& name) {
    const auto& names = AggregationOperatorNames();
    const auto it = std::find(names.begin(), names.end(), name);
    if (it == names.end()) {
        return std::nullopt;
    }
    return static_cast<AggregationOperator>(it - names.begin());
}

std::string AggregationOperatorName(AggregationOperator op) {
    return AggregationOperatorNames().at(static_cast<std::size_t>(op));
}

bool TakesGamma(AggregationOperator op) {
    return op == AggregationOperator::Gamma;
}

bool TakesWeights(AggregationOperator op) {
    return op == AggregationOperator::Mean || op == AggregationOperator::Owa;
}

namespace {

// A text of the database, or its English when the database lacks it (an older one).
std::string TextOr(const util::ITextSource& texts, std::int16_t id, const char* fallback,
                   const std::vector<std::string>& arguments) {
    std::string pattern = texts.ResourceString(id);
    return FillPlaceholders(pattern.empty() ? fallback : pattern, arguments);
}

} // namespace

Aggregation ReadAggregation(const std::string& op, const std::optional<double>& gamma,
                            std::vector<double> weights, const util::ITextSource& texts) {
    const auto parsed = ParseAggregationOperator(op);
    if (!parsed) {
        throw AggregationUsageError(
            TextOr(texts, kTextUnknownOperator,
                   "unknown operator '%1' (and, or, product, sum, gamma, mean, owa)", {op}));
    }
    Aggregation read;
    read.op = *parsed;
    if (TakesGamma(*parsed)) {
        if (!gamma) {
            // The command line's "missing option" text, as its option names the parameter.
            throw AggregationUsageError(TextOr(texts, 211, "missing option --%1", {"gamma"}));
        }
        read.gamma = *gamma;
    } else if (gamma) {
        throw AggregationUsageError(
            TextOr(texts, kTextGammaOnlyForGamma, "option --gamma goes with --op gamma only", {}));
    }
    read.weights = std::move(weights);
    return read;
}

std::optional<std::string> CheckAggregation(const Aggregation& a, std::size_t inputCount,
                                            const util::ITextSource& texts) {
    if (inputCount < 2) {
        return texts.ResourceString(kTextTooFewInputs);
    }
    if (TakesGamma(a.op) && !(a.gamma >= 0 && a.gamma <= 1)) {
        return FillPlaceholders(texts.ResourceString(kTextGammaOutOfRange), {Literal(a.gamma)});
    }
    if (!TakesWeights(a.op)) {
        if (!a.weights.empty()) {
            return FillPlaceholders(texts.ResourceString(kTextNoWeightsTaken),
                                    {AggregationOperatorName(a.op)});
        }
        return std::nullopt;
    }
    if (a.weights.size() != inputCount) {
        return FillPlaceholders(texts.ResourceString(kTextWeightCount),
                                {AggregationOperatorName(a.op), std::to_string(a.weights.size()),
                                 std::to_string(inputCount)});
    }
    for (const double w : a.weights) {
        // A weight so large that the weights' sum overflows would make every degree Null.
        if (!(w > 0) || !std::isfinite(w)) {
            return FillPlaceholders(texts.ResourceString(kTextWeightsNotPositive), {Literal(w)});
        }
    }
    if (!std::isfinite(WeightSum(a.weights))) {
        return FillPlaceholders(texts.ResourceString(kTextWeightsNotPositive),
                                {Literal(WeightSum(a.weights))});
    }
    return std::nullopt;
}

std::optional<double> Aggregate(const Aggregation& a,
                                std::span<const std::optional<double>> inputs) {
    if (inputs.empty()) {
        return std::nullopt;
    }
    for (const auto& input : inputs) {
        if (!input) {
            return std::nullopt;
        }
    }
    const auto product = [&] {
        double r = *inputs[0];
        for (std::size_t i = 1; i < inputs.size(); ++i) {
            r = r * *inputs[i];
        }
        return r;
    };
    const auto sum = [&] {
        double p = 1 - *inputs[0];
        for (std::size_t i = 1; i < inputs.size(); ++i) {
            p = p * (1 - *inputs[i]);
        }
        return 1 - p;
    };
    switch (a.op) {
    case AggregationOperator::And: {
        double r = *inputs[0];
        for (std::size_t i = 1; i < inputs.size(); ++i) {
            if (*inputs[i] < r) {
                r = *inputs[i];
            }
        }
        return r;
    }
    case AggregationOperator::Or: {
        double r = *inputs[0];
        for (std::size_t i = 1; i < inputs.size(); ++i) {
            if (*inputs[i] > r) {
                r = *inputs[i];
            }
        }
        return r;
    }
    case AggregationOperator::Product:
        return product();
    case AggregationOperator::Sum:
        return sum();
    case AggregationOperator::Gamma:
        return std::pow(sum(), a.gamma) * std::pow(product(), 1 - a.gamma);
    case AggregationOperator::Mean: {
        double weighted = a.weights.at(0) * *inputs[0];
        for (std::size_t i = 1; i < inputs.size(); ++i) {
            weighted = weighted + a.weights.at(i) * *inputs[i];
        }
        return weighted / WeightSum(a.weights);
    }
    case AggregationOperator::Owa: {
        std::vector<double> sorted;
        sorted.reserve(inputs.size());
        for (const auto& input : inputs) {
            sorted.push_back(*input);
        }
        std::sort(sorted.begin(), sorted.end(), std::greater<>());
        const double total = WeightSum(a.weights);
        double r = (a.weights.at(0) / total) * sorted[0];
        for (std::size_t k = 1; k < sorted.size(); ++k) {
            r = r + (a.weights.at(k) / total) * sorted[k];
        }
        return r;
    }
    }
    return std::nullopt;
}

std::string AggregationScript(const Aggregation& a, const std::vector<std::string>& fields) {
    std::vector<std::string> refs;
    for (const auto& field : fields) {
        refs.push_back("[" + field + "]");
    }
    std::vector<std::string> lines = {"Dim Val", "Val = Null"};
    // A comparison with Null is never true: the degree is computed only where every input has a
    // value, and stays Null elsewhere, as Aggregate's.
    std::string allPresent;
    for (const auto& ref : refs) {
        allPresent += (allPresent.empty() ? "" : " And ") + ref + " >= 0";
    }
    // The tests on the values, against the inputs being in [0, 1]: checked before any run.
    lines.push_back("If " + allPresent + " Then");
    std::string productText = refs[0];
    std::string complementProduct = "(1 - " + refs[0] + ")";
    for (std::size_t i = 1; i < refs.size(); ++i) {
        productText += " * " + refs[i];
        complementProduct += " * (1 - " + refs[i] + ")";
    }
    const std::string sumText = "(1 - " + complementProduct + ")";
    switch (a.op) {
    case AggregationOperator::And:
    case AggregationOperator::Or: {
        const char* better = a.op == AggregationOperator::And ? " < " : " > ";
        lines.push_back("Val = " + refs[0]);
        for (std::size_t i = 1; i < refs.size(); ++i) {
            lines.push_back("If " + refs[i] + better + "Val Then");
            lines.push_back("Val = " + refs[i]);
            lines.push_back("End If");
        }
        break;
    }
    case AggregationOperator::Product:
        lines.push_back("Val = " + productText);
        break;
    case AggregationOperator::Sum:
        lines.push_back("Val = " + sumText);
        break;
    case AggregationOperator::Gamma:
        lines.push_back("Val = " + sumText + " ^ " + Literal(a.gamma) + " * (" + productText +
                        ") ^ " + Literal(1 - a.gamma));
        break;
    case AggregationOperator::Mean: {
        std::string weighted;
        for (std::size_t i = 0; i < refs.size(); ++i) {
            weighted += (i > 0 ? " + " : "") + Literal(a.weights.at(i)) + " * " + refs[i];
        }
        lines.push_back("Val = (" + weighted + ") / " + Literal(WeightSum(a.weights)));
        break;
    }
    case AggregationOperator::Owa: {
        // The inputs copied and sorted from largest to smallest by exchanges of neighbours.
        const std::size_t n = refs.size();
        lines.push_back("Dim T");
        for (std::size_t i = 0; i < n; ++i) {
            lines.push_back("Dim X" + std::to_string(i + 1));
            lines.push_back("X" + std::to_string(i + 1) + " = " + refs[i]);
        }
        for (std::size_t pass = 0; pass + 1 < n; ++pass) {
            for (std::size_t i = 0; i + 1 < n - pass; ++i) {
                const std::string x = "X" + std::to_string(i + 1);
                const std::string y = "X" + std::to_string(i + 2);
                lines.insert(lines.end(), {"If " + x + " < " + y + " Then", "T = " + x,
                                           x + " = " + y, y + " = T", "End If"});
            }
        }
        const double total = WeightSum(a.weights);
        std::string weighted;
        for (std::size_t k = 0; k < n; ++k) {
            weighted += (k > 0 ? " + " : "") + Literal(a.weights.at(k) / total) + " * X" +
                        std::to_string(k + 1);
        }
        lines.push_back("Val = " + weighted);
        break;
    }
    }
    lines.push_back("End If");
    return JoinScriptLines(lines);
}

namespace {

std::vector<std::int32_t> FieldIndexes(const host::ICursor& cursor,
                                       const std::vector<std::string>& fields) {
    const auto cursorFields = cursor.Fields();
    std::vector<std::int32_t> indexes;
    for (const auto& name : fields) {
        const std::int32_t index = cursorFields->FindField(name);
        if (index < 0) {
            throw Error(error_number::kHostFailure, kSource, "Field not found: " + name);
        }
        indexes.push_back(index);
    }
    return indexes;
}

std::optional<double> NumberOrNull(const host::Value& value, const std::string& field) {
    if (const double* number = std::get_if<double>(&value)) {
        return *number;
    }
    if (!host::IsNull(value)) {
        throw Error(error_number::kTypeMismatch, kSource, "Type mismatch: " + field);
    }
    return std::nullopt;
}

} // namespace

AggregationInputs ReadAggregationInputs(host::ICursor& cursor,
                                        const std::vector<std::string>& fields) {
    const std::vector<std::int32_t> indexes = FieldIndexes(cursor, fields);
    host::ObjectIdReader ids(*cursor.Fields());
    AggregationInputs inputs;
    inputs.columns.resize(fields.size());
    while (const std::shared_ptr<host::IRow> row = cursor.NextRow()) {
        inputs.ids.push_back(ids.Next(*row));
        for (std::size_t k = 0; k < indexes.size(); ++k) {
            inputs.columns[k].push_back(NumberOrNull(row->GetValue(indexes[k]), fields[k]));
        }
    }
    return inputs;
}

std::optional<std::string> CheckInputFieldsExist(const host::IFeatureClass& table,
                                                 const std::vector<std::string>& fields,
                                                 const util::ITextSource& texts) {
    const auto tableFields = table.Fields();
    for (const auto& name : fields) {
        const std::int32_t index = tableFields->FindField(name);
        // A name the script cannot hold between brackets cannot be an input either.
        if (index < 0 || tableFields->Field(index)->Type() >= host::kFieldTypeString ||
            name.find(']') != std::string::npos) {
            return FillPlaceholders(texts.ResourceString(kTextNoNumericInput), {name});
        }
    }
    return std::nullopt;
}

namespace {

bool OutOfRange(const std::optional<double>& v) {
    return v && !(*v >= 0 && *v <= 1);
}

} // namespace

std::optional<std::string> InputRangeRefusal(const std::vector<std::size_t>& outside,
                                             const std::vector<std::string>& fields,
                                             const util::ITextSource& texts) {
    for (std::size_t k = 0; k < outside.size(); ++k) {
        if (outside[k] > 0) {
            return FillPlaceholders(texts.ResourceString(kTextInputOutOfRange),
                                    {fields.at(k), std::to_string(outside[k])});
        }
    }
    return std::nullopt;
}

std::optional<std::string> CheckInputRange(const AggregationInputs& inputs,
                                           const std::vector<std::string>& fields,
                                           const util::ITextSource& texts) {
    std::vector<std::size_t> outside;
    for (const auto& column : inputs.columns) {
        outside.push_back(
            static_cast<std::size_t>(std::count_if(column.begin(), column.end(), OutOfRange)));
    }
    return InputRangeRefusal(outside, fields, texts);
}

std::optional<std::string> CheckInputRange(host::ICursor& cursor,
                                           const std::vector<std::string>& fields,
                                           const util::ITextSource& texts) {
    const std::vector<std::int32_t> indexes = FieldIndexes(cursor, fields);
    std::vector<std::size_t> outside(fields.size(), 0);
    while (const std::shared_ptr<host::IRow> row = cursor.NextRow()) {
        for (std::size_t k = 0; k < indexes.size(); ++k) {
            if (OutOfRange(NumberOrNull(row->GetValue(indexes[k]), fields[k]))) {
                ++outside[k];
            }
        }
    }
    return InputRangeRefusal(outside, fields, texts);
}

std::vector<std::optional<double>> CombinedDegrees(const Aggregation& a,
                                                   const AggregationInputs& inputs) {
    std::vector<std::optional<double>> degrees;
    degrees.reserve(inputs.FeatureCount());
    std::vector<std::optional<double>> row(inputs.columns.size());
    for (std::size_t i = 0; i < inputs.FeatureCount(); ++i) {
        for (std::size_t k = 0; k < inputs.columns.size(); ++k) {
            row[k] = inputs.columns[k][i];
        }
        degrees.push_back(Aggregate(a, row));
    }
    return degrees;
}

std::vector<std::int64_t> SelectAtLeast(const std::vector<std::int64_t>& ids,
                                        const std::vector<std::optional<double>>& degrees,
                                        double alpha) {
    std::vector<std::int64_t> selected;
    for (std::size_t i = 0; i < ids.size() && i < degrees.size(); ++i) {
        if (degrees[i] && *degrees[i] >= alpha) {
            selected.push_back(ids[i]);
        }
    }
    std::sort(selected.begin(), selected.end());
    return selected;
}

} // namespace quorel::criterion
