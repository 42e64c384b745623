#include "criterion/FieldStatistics.h"

#include "util/Error.h"
#include "util/NumberText.h"
#include "util/StringFunctions.h"

#include <memory>

namespace quorel::criterion {

namespace {

constexpr const char* kSource = "cmdStats_Click";
constexpr const char* kCrLf = "\r\n";

[[noreturn]] void ThrowObjectNotSet() {
    throw Error(error_number::kObjectVariableNotSet, kSource,
                "Object variable or With block variable not set");
}

// A distinct value as the host hands it out, read as a double as the window's array holds it.
double ToDouble(const host::Value& value) {
    if (const double* number = std::get_if<double>(&value)) {
        return *number;
    }
    if (const std::string* text = std::get_if<std::string>(&value)) {
        for (char mark : {'.', ','}) {
            if (const auto parsed = util::ParseDecimal(*text, mark)) {
                return *parsed;
            }
        }
    }
    throw Error(error_number::kTypeMismatch, kSource, "Type mismatch");
}

} // namespace

std::array<double, kMaxListedValues + 1>
SelectionSort(std::array<double, kMaxListedValues + 1> values, std::int32_t count) {
    std::array<double, kMaxListedValues + 1> sorted{};
    // p is kept from pass to pass: a pass that finds nothing below the start minimum writes
    // the mark again at the place the previous pass took.
    std::size_t p = 0;
    for (std::int32_t i = 1; i <= count; ++i) {
        double m = kSortStartMinimum;
        for (std::int32_t j = 1; j <= count; ++j) {
            const auto place = static_cast<std::size_t>(j);
            if (values[place] < m) {
                m = values[place];
                p = place;
            }
        }
        sorted[static_cast<std::size_t>(i)] = m;
        values[p] = kSortTakenMark;
    }
    return sorted;
}

std::optional<FieldStatistics> ComputeFieldStatistics(host::IApplication* app,
                                                      const std::string& layerText,
                                                      const std::optional<std::string>& fieldName,
                                                      const util::ITextSource& texts,
                                                      char decimalMark, int& stepMarker) {
    if (app == nullptr) {
        ThrowObjectNotSet();
    }
    const std::shared_ptr<host::IMap> map = app->Document()->FocusMap();
    std::shared_ptr<host::IFeatureLayer> layer;
    const std::int32_t layerCount = map->LayerCount();
    for (std::int32_t i = 0; i < layerCount; ++i) {
        stepMarker = 4;
        const std::shared_ptr<host::ILayer> candidate = map->Layer(i);
        if (layerText == candidate->Name()) {
            layer = std::dynamic_pointer_cast<host::IFeatureLayer>(candidate);
            if (!layer) {
                throw Error(error_number::kTypeMismatch, kSource, "Type mismatch");
            }
        }
    }
    if (!layer) {
        ThrowObjectNotSet();
    }
    std::shared_ptr<host::ICursor> cursor = layer->Search(false);
    if (!fieldName) {
        return std::nullopt;
    }

    std::shared_ptr<host::IDataStatistics> statistics = app->Factory().NewDataStatistics();
    statistics->SetField(*fieldName);
    statistics->SetCursor(cursor);
    const std::vector<host::Value> distinct = statistics->UniqueValues();
    const std::int32_t count = statistics->UniqueValueCount();

    FieldStatistics result;
    if (count > kMaxListedValues) {
        result.lines.emplace_back(kTooManyValues);
    } else {
        std::array<double, kMaxListedValues + 1> values{};
        std::size_t k = 1;
        for (const host::Value& value : distinct) {
            if (host::IsNull(value) || k > static_cast<std::size_t>(kMaxListedValues)) {
                break;
            }
            values[k++] = ToDouble(value);
        }
        const auto sorted = SelectionSort(values, count);
        for (std::int32_t i = 1; i <= count; ++i) {
            result.lines.push_back(
                util::FormatNumber(sorted[static_cast<std::size_t>(i)], decimalMark));
        }
    }

    statistics->SetCursor(layer->Search(false));
    const std::shared_ptr<host::IStatisticsResults> figures = statistics->Statistics();
    const auto text = [&texts](std::int16_t id) { return texts.ResourceString(id); };
    const auto number = [decimalMark](double value) {
        return util::FormatNumber(value, decimalMark);
    };
    result.summary = text(140) + " : " + kCrLf + *fieldName + kCrLf + kCrLf;
    result.summary += text(141) + " : " + number(figures->Minimum()) + kCrLf;
    result.summary += text(142) + " : " + number(figures->Maximum()) + kCrLf;
    result.summary += text(143) + " : " + number(figures->Mean()) + kCrLf;
    result.summary += text(144) + " : " + number(figures->StandardDeviation()) + kCrLf;
    result.summary += text(145) + " : " + std::to_string(figures->Count()) + kCrLf;
    result.summary += text(146) + " : " + std::to_string(count);
    return result;
}

} // namespace quorel::criterion
