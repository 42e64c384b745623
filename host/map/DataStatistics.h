#pragma once

#include "host/api/Host.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::host::map {

// Statistics of one field over the rows of a cursor, read in one pass when first asked for.
// Nulls are not values: they are left out of the distinct values and of every figure.
// - UniqueValues: the distinct values in the order the cursor gives them (numbers compared as
//   numbers, 0 and -0 being one value; texts compared exactly).
// - Statistics: over the non-null numbers, Count, Minimum, Maximum, Mean and the population
//   standard deviation sqrt(sum((x - mean)^2) / Count), as desktop GIS tools show it. With no
//   value at all, Count is 0 and the four figures are 0. A text field has no statistics (error 13).
// Setting the field or the cursor starts afresh with the next question.
class DataStatistics final : public IDataStatistics {
public:
    void SetField(const std::string& fieldName) override;
    void SetCursor(std::shared_ptr<ICursor> cursor) override;
    std::vector<Value> UniqueValues() override;
    std::int32_t UniqueValueCount() override;
    std::shared_ptr<IStatisticsResults> Statistics() override;

private:
    void Compute();

    std::string m_field;
    std::shared_ptr<ICursor> m_cursor;
    bool m_computed = false;
    std::vector<Value> m_unique;
    bool m_hasText = false;
    std::int32_t m_count = 0;
    double m_minimum = 0;
    double m_maximum = 0;
    double m_mean = 0;
    double m_sumOfSquares = 0; // of the deviations from the running mean (Welford)
};

} // namespace quorel::host::map
