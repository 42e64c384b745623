#include "criterion/Preview.h"

#include "criterion/FuzzyKind.h"
#include "criterion/Parameters.h"
#include "util/Error.h"
#include "util/NumberText.h"
#include "util/StringFunctions.h"
#include "util/TextSource.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace quorel::criterion {
namespace {

constexpr const char* kSource = "Preview";
constexpr char kLetters[] = {'a', 'b', 'c', 'd'};

// The degree as the output field holds it: rounded to its decimals near 0 and 1, where the
// rounding can change the degree's class; elsewhere the class cannot change.
double AsStored(double degree) {
    constexpr double kNear = 1e-10;
    if (std::fabs(degree) >= kNear && std::fabs(degree - 1.0) >= kNear) {
        return degree;
    }
    char text[64];
    const auto printed = std::to_chars(text, text + sizeof text, degree, std::chars_format::fixed,
                                       kStoredDegreeDecimals);
    double stored = degree;
    std::from_chars(text, printed.ptr, stored, std::chars_format::fixed);
    return stored;
}

void Count(double degree, DegreeCounts& counts) {
    if (std::isnan(degree)) {
        ++counts.null;
        return;
    }
    const double stored = AsStored(degree);
    if (stored <= 0.0) {
        ++counts.zero;
    } else if (stored >= 1.0) {
        ++counts.one;
    } else {
        ++counts.partial;
    }
}

// The letter of the box behind a completed parameter (0 to 3), or nothing for one the kind sets
// itself.
std::optional<char> BoxOfParameter(int kind, std::size_t parameter) {
    if (kind == FallingRamp) {
        // The falling ramp moves its a and b to c and d.
        return parameter >= 2 ? std::optional<char>(kLetters[parameter - 2]) : std::nullopt;
    }
    return InfoOfKind(kind).boxes[parameter] ? std::optional<char>(kLetters[parameter])
                                             : std::nullopt;
}

double NextFieldValueBelow(const std::vector<double>& ascending, double x, double step) {
    const auto it = std::lower_bound(ascending.begin(), ascending.end(), x);
    return it == ascending.begin() ? x - step : *std::prev(it);
}

double NextFieldValueAbove(const std::vector<double>& ascending, double x, double step) {
    const auto it = std::upper_bound(ascending.begin(), ascending.end(), x);
    return it == ascending.end() ? x + step : *it;
}

} // namespace

std::optional<FieldValues> ReadFieldValues(host::ICursor& cursor, const std::string& fieldName,
                                           const std::function<bool()>& cancelled) {
    const std::int32_t index = cursor.Fields()->FindField(fieldName);
    if (index < 0) {
        throw Error(error_number::kHostFailure, kSource, "Field not found: " + fieldName);
    }
    FieldValues result;
    while (const std::shared_ptr<host::IRow> row = cursor.NextRow()) {
        if (cancelled && cancelled()) {
            return std::nullopt;
        }
        const host::Value value = row->GetValue(index);
        if (const double* number = std::get_if<double>(&value)) {
            result.values.push_back(*number);
        } else if (host::IsNull(value)) {
            ++result.nullCount;
        } else {
            throw Error(error_number::kTypeMismatch, kSource, "Type mismatch: " + fieldName);
        }
    }
    std::sort(result.values.begin(), result.values.end());
    return result;
}

Histogram MakeHistogram(const FieldValues& values, std::size_t binCount) {
    Histogram histogram;
    if (values.values.empty() || binCount == 0) {
        return histogram;
    }
    histogram.low = values.values.front();
    histogram.high = values.values.back();
    histogram.bins.assign(binCount, 0);
    const double width = histogram.high - histogram.low;
    const double last = static_cast<double>(binCount - 1);
    for (const double v : values.values) {
        // A range beyond the doubles' (from -1E308 to 1E308) makes the position NaN: bin 0.
        const double position =
            width > 0 ? (v - histogram.low) / width * static_cast<double>(binCount) : 0.0;
        const double bin = std::clamp(std::isnan(position) ? 0.0 : std::floor(position), 0.0, last);
        ++histogram.bins[static_cast<std::size_t>(bin)];
    }
    return histogram;
}

double Percentile(const std::vector<double>& ascending, double p) {
    const double position = p * static_cast<double>(ascending.size() - 1);
    const auto below = static_cast<std::size_t>(std::floor(position));
    const std::size_t above = std::min(below + 1, ascending.size() - 1);
    const double fraction = position - static_cast<double>(below);
    return ascending[below] + fraction * (ascending[above] - ascending[below]);
}

std::optional<std::array<std::optional<double>, 4>> SuggestParameters(int kind,
                                                                      const FieldValues& values) {
    const std::vector<double>& v = values.values;
    if (v.empty() || !IsShapeKind(kind)) {
        return std::nullopt;
    }
    const auto at = [&v](double p) { return Percentile(v, p); };
    // Where the two ends of a slope meet, its outer end moves out to the next value of the
    // field, or past the field's end by a tenth of its range.
    const double range = v.back() - v.front();
    const double step = range > 0 ? range / 10 : 1.0;
    const auto widenDown = [&](double& outer, double inner) {
        if (outer == inner) {
            outer = NextFieldValueBelow(v, inner, step);
        }
    };
    const auto widenUp = [&](double inner, double& outer) {
        if (outer == inner) {
            outer = NextFieldValueAbove(v, inner, step);
        }
    };

    std::array<std::optional<double>, 4> boxes;
    switch (kind) {
    case Singleton:
        boxes[0] = v[(v.size() - 1) / 2];
        break;
    case Triangle: {
        double a = at(0.10), b = at(0.50), c = at(0.90);
        widenDown(a, b);
        widenUp(b, c);
        boxes = {a, b, c, std::nullopt};
        break;
    }
    case RisingRamp: {
        double a = at(0.25), b = at(0.75);
        widenDown(a, b);
        boxes = {a, b, std::nullopt, std::nullopt};
        break;
    }
    case FallingRamp: {
        double a = at(0.25), b = at(0.75);
        widenUp(a, b);
        boxes = {a, b, std::nullopt, std::nullopt};
        break;
    }
    default: {
        double a = at(0.10), b = at(0.25), c = at(0.75), d = at(0.90);
        widenDown(a, b);
        widenUp(c, d);
        boxes = {a, b, c, d};
        break;
    }
    }
    return boxes;
}

DegreeCounts CountDegrees(const MembershipFunction& degree, const FieldValues& values) {
    DegreeCounts counts;
    // In blocks, so the degrees come from the vectorised evaluation without a second array the
    // size of the field.
    constexpr std::size_t kBlock = 4096;
    double degrees[kBlock];
    const std::vector<double>& v = values.values;
    for (std::size_t start = 0; start < v.size(); start += kBlock) {
        const std::size_t n = std::min(kBlock, v.size() - start);
        degree.Evaluate(v.data() + start, degrees, n);
        for (std::size_t i = 0; i < n; ++i) {
            Count(degrees[i], counts);
        }
    }
    DegreeCounts ofNull;
    Count(degree.OfNull(), ofNull);
    counts.zero += ofNull.zero * values.nullCount;
    counts.partial += ofNull.partial * values.nullCount;
    counts.one += ofNull.one * values.nullCount;
    counts.null += ofNull.null * values.nullCount;
    return counts;
}

PreviewCriterion ReadPreviewCriterion(int kind, const std::array<std::string, 4>& boxes) {
    PreviewCriterion result;
    if (!IsShapeKind(kind)) {
        return result;
    }
    const KindInfo& info = InfoOfKind(kind);
    constexpr double kUnreadable = std::numeric_limits<double>::quiet_NaN();
    std::array<double, 4> p = {kDefaultA, kDefaultBCD, kDefaultBCD, kDefaultBCD};
    for (std::size_t i = 0; i < 4; ++i) {
        if (!info.boxes[i]) {
            continue;
        }
        p[i] = ParseNumberText(boxes[i], kUnreadable);
        if (std::isnan(p[i])) {
            result.status = PreviewCriterion::Status::Unreadable;
            result.detail = std::string(1, kLetters[i]);
            return result;
        }
        result.breaks.push_back({kLetters[i], p[i]});
    }
    CompleteParameters(kind, p[0], p[1], p[2], p[3]);
    // Calculer's check decides; the first comparison that fails names the boxes.
    for (std::size_t i = 1; i < 4 && !CheckParameterOrder(p[0], p[1], p[2], p[3]); ++i) {
        if (p[i] >= p[i - 1]) {
            continue;
        }
        const char mark = util::DecimalSeparator();
        const auto side = [&](std::size_t parameter) {
            const std::string number = util::FormatNumber(p[parameter], mark);
            const auto box = BoxOfParameter(kind, parameter);
            return box ? std::string(1, *box) + " = " + number : number;
        };
        result.status = PreviewCriterion::Status::OutOfOrder;
        result.detail = side(i) + " < " + side(i - 1);
        return result;
    }
    try {
        result.degree.emplace(kind, p[0], p[1], p[2], p[3]);
    } catch (const Error& error) {
        result.status = PreviewCriterion::Status::ScriptFails;
        result.detail = error.Description();
        return result;
    }
    result.status = PreviewCriterion::Status::Ready;
    return result;
}

std::vector<CurvePoint> MembershipCurve(const MembershipFunction& degree,
                                        const std::vector<BreakPoint>& breaks, double low,
                                        double high, std::size_t samples) {
    std::vector<double> xs;
    for (std::size_t i = 0; i < samples; ++i) {
        const double t =
            samples > 1 ? static_cast<double>(i) / static_cast<double>(samples - 1) : 0.0;
        xs.push_back(low + t * (high - low));
    }
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    for (const BreakPoint& point : breaks) {
        for (const double x : {std::nextafter(point.value, -kInfinity), point.value,
                               std::nextafter(point.value, kInfinity)}) {
            if (x >= low && x <= high) {
                xs.push_back(x);
            }
        }
    }
    std::sort(xs.begin(), xs.end());
    xs.erase(std::unique(xs.begin(), xs.end()), xs.end());
    std::vector<double> degrees(xs.size());
    degree.Evaluate(xs.data(), degrees.data(), xs.size());
    std::vector<CurvePoint> curve;
    curve.reserve(xs.size());
    for (std::size_t i = 0; i < xs.size(); ++i) {
        curve.push_back({xs[i], degrees[i]});
    }
    return curve;
}

std::string FillPlaceholders(std::string text, const std::vector<std::string>& arguments) {
    for (std::size_t i = arguments.size(); i-- > 0;) {
        const std::string placeholder = "%" + std::to_string(i + 1);
        for (std::size_t at = text.find(placeholder); at != std::string::npos;
             at = text.find(placeholder, at + arguments[i].size())) {
            text.replace(at, placeholder.size(), arguments[i]);
        }
    }
    return text;
}

std::string PreviewText(const util::ITextSource& texts, std::int16_t id) {
    std::string text = texts.ResourceString(id);
    if (!text.empty()) {
        return text;
    }
    switch (id) {
    case kTextSuggest:
        return "Suggest";
    case kTextBoxUnreadable:
        return "No preview: box %1 is empty or does not hold a number.";
    case kTextBoxesOutOfOrder:
        return "No preview: the values must satisfy a <= b <= c <= d (here %1).";
    case kTextScriptWouldFail:
        return "No preview: the computation would fail for every feature (%1).";
    case kTextChooseField:
        return "Choose a layer, then an attribute, to see the criterion's preview.";
    case kTextReadingValues:
        return "Reading the attribute's values...";
    case kTextChooseShape:
        return "Choose a shape to see its curve over the attribute's values.";
    case kTextFieldUnreadable:
        return "The attribute's values cannot be read: %1";
    case kTextDegreeCounts:
        return "Degree 0: %1   between 0 and 1: %2   degree 1: %3   Null: %4";
    case kTextSuggestTip:
        return "Fills a, b, c and d from the percentiles of the attribute's values, for the "
               "chosen shape.";
    default:
        return text;
    }
}

std::string DegreeCountsLine(const DegreeCounts& counts, const util::ITextSource& texts) {
    return FillPlaceholders(PreviewText(texts, kTextDegreeCounts),
                            {std::to_string(counts.zero), std::to_string(counts.partial),
                             std::to_string(counts.one), std::to_string(counts.null)});
}

PreviewFigure MakePreviewFigure(const std::string& fieldName, const FieldValues* values,
                                const Histogram* histogram, const PreviewCriterion& criterion,
                                const util::ITextSource& texts, char decimalMark,
                                const std::optional<std::string>& message) {
    PreviewFigure figure;
    figure.title = fieldName;
    for (const BreakPoint& point : criterion.breaks) {
        figure.marks.push_back({point.value, std::string(1, point.letter) + " = " +
                                                 util::FormatNumber(point.value, decimalMark)});
    }

    // The value axis: the field's range with a margin, or the break points when it has none.
    if (histogram != nullptr && !histogram->bins.empty()) {
        figure.histogram = *histogram;
        figure.low = histogram->low;
        figure.high = histogram->high;
        figure.lowLabel = util::FormatNumber(histogram->low, decimalMark);
        figure.highLabel = util::FormatNumber(histogram->high, decimalMark);
    } else if (!criterion.breaks.empty()) {
        figure.low = figure.high = criterion.breaks.front().value;
        for (const BreakPoint& point : criterion.breaks) {
            figure.low = std::min(figure.low, point.value);
            figure.high = std::max(figure.high, point.value);
        }
    }
    const double width = figure.high - figure.low;
    const double margin = width > 0 ? width * 0.05 : std::max(std::fabs(figure.low) * 0.1, 1.0);
    figure.low -= margin;
    figure.high += margin;

    const auto problem = [&](std::int16_t id, const std::string& detail) {
        figure.statusLine = FillPlaceholders(PreviewText(texts, id), {detail});
        figure.statusIsProblem = true;
    };
    using Status = PreviewCriterion::Status;
    if (message) {
        figure.statusLine = *message;
    } else if (values == nullptr) {
        figure.statusLine = PreviewText(texts, kTextChooseField);
    } else {
        switch (criterion.status) {
        case Status::NoShape:
            figure.statusLine = PreviewText(texts, kTextChooseShape);
            break;
        case Status::Unreadable:
            problem(kTextBoxUnreadable, criterion.detail);
            break;
        case Status::OutOfOrder:
            problem(kTextBoxesOutOfOrder, criterion.detail);
            break;
        case Status::ScriptFails:
            problem(kTextScriptWouldFail, criterion.detail);
            break;
        case Status::Ready:
            figure.statusLine = DegreeCountsLine(CountDegrees(*criterion.degree, *values), texts);
            break;
        }
    }
    if (criterion.degree && values != nullptr && !message) {
        constexpr std::size_t kCurveSamples = 512;
        figure.curve = MembershipCurve(*criterion.degree, criterion.breaks, figure.low, figure.high,
                                       kCurveSamples);
    }
    return figure;
}

} // namespace quorel::criterion
