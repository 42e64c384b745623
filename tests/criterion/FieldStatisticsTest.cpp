// A field's statistics as the "Stats" button and quorel stats show them, over the in-memory host.

#include "criterion/FieldStatistics.h"

#include "host/memory/MemoryHost.h"
#include "util/Error.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace quorel::criterion {
namespace {

using quorel::test::Thrown;

TEST(SelectionSortTest, sortsPlacesOneToCount) {
    using Values = std::vector<double>;
    for (const auto& [name, given, sorted] :
         {std::tuple{"empty", Values{}, Values{}},
          std::tuple{"distinct", Values{3, -2, 7.5}, Values{-2, 3, 7.5}},
          std::tuple{"equalValues", Values{3, -2, 7.5, 3}, Values{-2, 3, 3, 7.5}},
          std::tuple{"hugeValuesBecomeTheStartMinimumAtTheEnd",
                     Values{5, 99999999999.0, 9999999999.0, 2, 1e20},
                     Values{2, 5, 9999999999.0, 9999999999.0, 9999999999.0}},
          std::tuple{"justBelowTheStartMinimum", Values{9999999998.0, 1}, Values{1, 9999999998.0}},
          std::tuple{"negative", Values{-1e300, -5}, Values{-1e300, -5}}}) {
        std::array<double, kMaxListedValues + 1> values{};
        values[0] = -12345; // place 0 holds no value and is never read
        std::copy(given.begin(), given.end(), values.begin() + 1);
        const auto result = SelectionSort(values, static_cast<std::int32_t>(given.size()));
        EXPECT_EQ(Values(result.begin() + 1,
                         result.begin() + 1 + static_cast<std::ptrdiff_t>(given.size())),
                  sorted)
            << name;
    }
}

class Texts final : public util::ITextSource {
public:
    std::string ResourceString(std::int16_t id) const override { return "T" + std::to_string(id); }
};

class ComputeStatisticsTest : public ::testing::Test {
protected:
    void AddLayer(const std::vector<double>& values) {
        const auto layer = m_app.AddFeatureLayer("/data", "parcels", host::kGeometryPolygon,
                                                 {{"V", host::kFieldTypeDouble}});
        auto& featureClass = host::memory::MemoryApplication::MemoryClass(*layer);
        for (const double value : values) {
            featureClass.AddRow({value});
        }
    }
    std::optional<FieldStatistics> Compute(const char* layer, std::optional<std::string> field) {
        return ComputeFieldStatistics(&m_app, layer, field, m_texts, ',', m_marker);
    }

    host::memory::MemoryApplication m_app;
    Texts m_texts;
    int m_marker = -1;
};

TEST_F(ComputeStatisticsTest, failuresCarryTheStepMarker) {
    const Error error =
        Thrown([&] { ComputeFieldStatistics(nullptr, "parcels", "V", m_texts, '.', m_marker); });
    EXPECT_EQ(error.Number(), error_number::kObjectVariableNotSet);
    EXPECT_EQ(m_marker, -1);
    AddLayer({1, 2});
    EXPECT_EQ(Thrown([&] { Compute("roads", "V"); }).Number(), error_number::kObjectVariableNotSet);
    EXPECT_EQ(m_marker, 4);
    // No field selected: the layer is searched, then nothing more.
    EXPECT_EQ(Compute("parcels", std::nullopt), std::nullopt);
}

TEST_F(ComputeStatisticsTest, listsSortedValuesWithTheMarkAndEndsSummaryLinesInCrLf) {
    AddLayer({7.5, -0.5, -0.5, 7.5});
    const auto result = Compute("parcels", "V");
    ASSERT_TRUE(result);
    EXPECT_EQ(result->lines, (std::vector<std::string>{"-0,5", "7,5"}));
    EXPECT_EQ(result->summary, "T140 : \r\nV\r\n\r\nT141 : -0,5\r\nT142 : 7,5\r\nT143 : 3,5\r\n"
                               "T144 : 4\r\nT145 : 4\r\nT146 : 2");
}

TEST_F(ComputeStatisticsTest, moreThanHundredDistinctValuesListOnlyTheMark) {
    std::vector<double> values;
    for (int i = 0; i < 101; ++i) {
        values.push_back(i);
    }
    AddLayer(values);
    const auto result = Compute("parcels", "V");
    ASSERT_TRUE(result);
    EXPECT_EQ(result->lines, std::vector<std::string>{kTooManyValues});
    EXPECT_TRUE(result->summary.ends_with("\r\nT145 : 101\r\nT146 : 101"));
}

} // namespace
} // namespace quorel::criterion
