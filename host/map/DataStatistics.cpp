#include "host/map/DataStatistics.h"

#include "util/Error.h"

#include <cmath>
#include <unordered_set>

// GCC 12 reports a false "may be used uninitialized" inside std::variant's move constructor when
// a vector of Values grows.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace quorel::host::map {
namespace {

constexpr const char* kSource = "DataStatistics";

class StatisticsResults final : public IStatisticsResults {
public:
    StatisticsResults(std::int32_t count, double minimum, double maximum, double mean,
                      double deviation)
        : m_count(count), m_minimum(minimum), m_maximum(maximum), m_mean(mean),
          m_deviation(deviation) {}

    std::int32_t Count() const override { return m_count; }
    double Minimum() const override { return m_minimum; }
    double Maximum() const override { return m_maximum; }
    double Mean() const override { return m_mean; }
    double StandardDeviation() const override { return m_deviation; }

private:
    std::int32_t m_count;
    double m_minimum;
    double m_maximum;
    double m_mean;
    double m_deviation;
};

} // namespace

void DataStatistics::SetField(const std::string& fieldName) {
    m_field = fieldName;
    m_computed = false;
}

void DataStatistics::SetCursor(std::shared_ptr<ICursor> cursor) {
    m_cursor = std::move(cursor);
    m_computed = false;
}

std::vector<Value> DataStatistics::UniqueValues() {
    Compute();
    return m_unique;
}

std::int32_t DataStatistics::UniqueValueCount() {
    Compute();
    return static_cast<std::int32_t>(m_unique.size());
}

std::shared_ptr<IStatisticsResults> DataStatistics::Statistics() {
    Compute();
    if (m_hasText) {
        throw Error(error_number::kTypeMismatch, kSource,
                    "The field " + m_field + " is not numeric: it has no statistics");
    }
    const double deviation = m_count > 0 ? std::sqrt(m_sumOfSquares / m_count) : 0;
    return std::make_shared<StatisticsResults>(m_count, m_minimum, m_maximum, m_mean, deviation);
}

void DataStatistics::Compute() {
    if (m_computed) {
        return;
    }
    if (!m_cursor) {
        throw Error(error_number::kObjectRequired, kSource, "The statistics have no cursor");
    }
    const std::int32_t index = m_cursor->Fields()->FindField(m_field);
    if (index < 0) {
        throw Error(error_number::kHostFailure, kSource, "Field not found: " + m_field);
    }
    m_unique.clear();
    m_hasText = false;
    m_count = 0;
    m_minimum = m_maximum = m_mean = m_sumOfSquares = 0;
    std::unordered_set<double> numbers; // std::hash gives 0 and -0 the same bucket
    std::unordered_set<std::string> texts;
    while (const auto row = m_cursor->NextRow()) {
        const Value value = row->GetValue(index);
        if (const double* number = std::get_if<double>(&value)) {
            const double x = *number;
            if (numbers.insert(x).second) {
                m_unique.push_back(x);
            }
            ++m_count;
            if (m_count == 1) {
                m_minimum = m_maximum = x;
            } else {
                m_minimum = std::min(m_minimum, x);
                m_maximum = std::max(m_maximum, x);
            }
            const double delta = x - m_mean;
            m_mean += delta / m_count;
            m_sumOfSquares += delta * (x - m_mean);
        } else if (const std::string* text = std::get_if<std::string>(&value)) {
            m_hasText = true;
            if (texts.insert(*text).second) {
                m_unique.emplace_back(std::in_place_type<std::string>, *text);
            }
        }
    }
    m_computed = true;
}

} // namespace quorel::host::map
