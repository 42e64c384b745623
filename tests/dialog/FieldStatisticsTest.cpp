// The statistics without their window: the sort and its constants, and the failures.

#include "tests/dialog/DialogFixture.h"

#include "dialog/FieldStatistics.h"
#include "util/Error.h"

namespace quorel::dialog::test {
namespace {

struct SortCase {
    const char* name;
    std::vector<double> values;
    std::vector<double> sorted;
};

class SelectionSortTest : public ::testing::TestWithParam<SortCase> {};

TEST_P(SelectionSortTest, sortsPlacesOneToCount) {
    std::array<double, kMaxListedValues + 1> values{};
    values[0] = -12345; // place 0 holds no value and is never read
    for (std::size_t i = 0; i < GetParam().values.size(); ++i) {
        values[i + 1] = GetParam().values[i];
    }
    const auto sorted = SelectionSort(values, static_cast<std::int32_t>(GetParam().values.size()));
    const std::vector<double> result(sorted.begin() + 1,
                                     sorted.begin() + 1 +
                                         static_cast<std::ptrdiff_t>(GetParam().values.size()));
    EXPECT_EQ(result, GetParam().sorted);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SelectionSortTest,
    ::testing::Values(SortCase{"empty", {}, {}}, SortCase{"distinct", {3, -2, 7.5}, {-2, 3, 7.5}},
                      SortCase{"equalValues", {3, -2, 7.5, 3}, {-2, 3, 3, 7.5}},
                      SortCase{"hugeValuesBecomeTheStartMinimumAtTheEnd",
                               {5, 99999999999.0, 9999999999.0, 2, 1e20},
                               {2, 5, 9999999999.0, 9999999999.0, 9999999999.0}},
                      SortCase{"justBelowTheStartMinimum", {9999999998.0, 1}, {1, 9999999998.0}},
                      SortCase{"negative", {-1e300, -5}, {-1e300, -5}}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

class ComputeStatisticsTest : public DialogTest {};

TEST_F(ComputeStatisticsTest, failuresCarryTheStepMarker) {
    const util::ITextSource& texts = m_session->texts;
    int marker = -1;
    try {
        ComputeFieldStatistics(nullptr, "parcels", "V", texts, '.', marker);
        FAIL() << "no host";
    } catch (const Error& error) {
        EXPECT_EQ(error.Number(), error_number::kObjectVariableNotSet);
        EXPECT_EQ(marker, -1);
    }

    AddLayer(WritePolygons("data", "parcels", {{"V", {1, 2}}}));
    try {
        ComputeFieldStatistics(m_app.get(), "roads", "V", texts, '.', marker);
        FAIL() << "no layer of that name";
    } catch (const Error& error) {
        EXPECT_EQ(error.Number(), error_number::kObjectVariableNotSet);
        EXPECT_EQ(marker, 4);
    }
    EXPECT_THROW(ComputeFieldStatistics(m_app.get(), "parcels", "MISSING", texts, '.', marker),
                 Error);
    // No field selected: the layer is searched, then nothing more.
    EXPECT_EQ(ComputeFieldStatistics(m_app.get(), "parcels", std::nullopt, texts, '.', marker),
              std::nullopt);
}

TEST_F(ComputeStatisticsTest, summaryLinesEndInCrLfExceptTheLast) {
    AddLayer(WritePolygons("data", "parcels", {{"V", {2, 4}}}));
    int marker = 0;
    const auto result =
        ComputeFieldStatistics(m_app.get(), "parcels", "V", m_session->texts, '.', marker);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->lines, (std::vector<std::string>{"2", "4"}));
    EXPECT_EQ(result->summary.rfind(Text(140) + " : \r\nV\r\n\r\n" + Text(141) + " : 2\r\n", 0),
              0u);
    EXPECT_TRUE(result->summary.ends_with("\r\n" + Text(146) + " : 2"));
}

} // namespace
} // namespace quorel::dialog::test
