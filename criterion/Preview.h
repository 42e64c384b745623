#pragma once

// The live preview of a criterion over the values of its field: the histogram of the values,
// the curve of the typed shape, and how many features will get 0, a degree strictly between 0
// and 1, 1 and Null. Degrees come from MembershipFunction, the function the script computes,
// so that the preview counts what the run will write.

#include "criterion/Membership.h"
#include "host/api/Host.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quorel::util {
class ITextSource;
}

namespace quorel::criterion {

// Text ids of the preview's lines.
inline constexpr std::int16_t kTextSuggest = 260;
inline constexpr std::int16_t kTextBoxUnreadable = 261;
inline constexpr std::int16_t kTextBoxesOutOfOrder = 262;
inline constexpr std::int16_t kTextScriptWouldFail = 263;
inline constexpr std::int16_t kTextChooseField = 264;
inline constexpr std::int16_t kTextReadingValues = 265;
inline constexpr std::int16_t kTextChooseShape = 266;
inline constexpr std::int16_t kTextFieldUnreadable = 267;
inline constexpr std::int16_t kTextDegreeCounts = 268;
inline constexpr std::int16_t kTextSuggestTip = 269;

// The run's output field keeps 11 decimals (a double field of a shapefile's table is N(19,11)):
// a degree that rounds to 0 or 1 there is written as 0 or 1, and the preview counts it so.
inline constexpr int kStoredDegreeDecimals = 11;

// The values of one numeric field over all features of a layer.
struct FieldValues {
    std::vector<double> values; // the non-null values, ascending
    std::size_t nullCount = 0;

    std::size_t FeatureCount() const { return values.size() + nullCount; }
};

// Reads fieldName row by row through the cursor. nullopt when cancelled() (asked between rows)
// says to stop. Throws quorel::Error when the cursor has no such field or a value is a text.
std::optional<FieldValues> ReadFieldValues(host::ICursor& cursor, const std::string& fieldName,
                                           const std::function<bool()>& cancelled = {});

// How many bins the preview's histogram has.
inline constexpr std::size_t kPreviewHistogramBins = 40;

// Equal-width bins from the smallest value to the largest; the last bin holds the largest.
struct Histogram {
    double low = 0;
    double high = 0;
    std::vector<std::size_t> bins; // empty when the field has no value
};

Histogram MakeHistogram(const FieldValues& values, std::size_t binCount);

// The p-th percentile (0 to 1): the value at position p * (n - 1) of the ascending values,
// interpolated linearly between its neighbours. values must not be empty.
double Percentile(const std::vector<double>& ascending, double p);

// a, b, c, d as Suggérer fills them for kind 1 to 5 (the boxes the kind does not use are
// nullopt); nullopt when the field has no value or the kind is not a shape. See the README.
std::optional<std::array<std::optional<double>, 4>> SuggestParameters(int kind,
                                                                      const FieldValues& values);

struct DegreeCounts {
    std::size_t zero = 0;
    std::size_t partial = 0; // strictly between 0 and 1
    std::size_t one = 0;
    std::size_t null = 0;

    bool operator==(const DegreeCounts&) const = default;
};

// Every feature's degree as the table will hold it, counted.
DegreeCounts CountDegrees(const MembershipFunction& degree, const FieldValues& values);

// A break point of the typed shape: the box's letter and its value.
struct BreakPoint {
    char letter;
    double value;
};

// What the preview makes of the shape and the boxes.
struct PreviewCriterion {
    enum class Status { Ready, NoShape, Unreadable, OutOfOrder, ScriptFails };

    Status status = Status::NoShape;
    // Unreadable: the box's letter; OutOfOrder: the failed comparison ("b = 2 < a = 5");
    // ScriptFails: the error's description.
    std::string detail;
    std::vector<BreakPoint> breaks;           // the boxes the kind uses, as read
    std::optional<MembershipFunction> degree; // when Ready
};

// Reads the boxes a kind uses as Calculer reads them and completes them. Unlike Calculer, which
// gives an empty or unreadable box its default, the preview says which box it cannot read.
PreviewCriterion ReadPreviewCriterion(int kind, const std::array<std::string, 4>& boxes);

// One point of the curve.
struct CurvePoint {
    double x;
    double degree; // NaN where the script leaves the degree Empty
};

// The degrees across [low, high]: evenly spaced samples, every break point inside the range and
// the values just beside it, so that jumps and the singleton's spike show.
std::vector<CurvePoint> MembershipCurve(const MembershipFunction& degree,
                                        const std::vector<BreakPoint>& breaks, double low,
                                        double high, std::size_t samples);

// Everything the preview's picture shows, its texts in the current language.
struct PreviewFigure {
    std::string title;        // the field's name
    double low = 0, high = 0; // the value axis
    std::string lowLabel, highLabel;
    Histogram histogram;
    std::vector<CurvePoint> curve; // empty when there is no curve to draw
    struct Mark {
        double value;
        std::string label; // "a = 2"
    };
    std::vector<Mark> marks;
    std::string statusLine; // the counts, or why there are none
    bool statusIsProblem = false;
};

// The figure of a field (nullptr while its values are not read) and a criterion; message, when
// set, replaces the status line (reading the values, a failure to read them).
PreviewFigure MakePreviewFigure(const std::string& fieldName, const FieldValues* values,
                                const Histogram* histogram, const PreviewCriterion& criterion,
                                const util::ITextSource& texts, char decimalMark,
                                const std::optional<std::string>& message = std::nullopt);

// A text of the preview (260 to 269) in the current language, or in English when the text
// database has none (a database from an older installation).
std::string PreviewText(const util::ITextSource& texts, std::int16_t id);

// The counts line (text 268 with the four counts).
std::string DegreeCountsLine(const DegreeCounts& counts, const util::ITextSource& texts);

// A text with %1, %2... replaced by the arguments.
std::string FillPlaceholders(std::string text, const std::vector<std::string>& arguments);

} // namespace quorel::criterion
