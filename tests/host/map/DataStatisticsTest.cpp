#include "host/map/DataStatistics.h"
#include "host/memory/MemoryHost.h"

#include "util/Error.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <cmath>

namespace quorel::host::map {
namespace {

using quorel::test::Thrown;

// A cursor over one field "V" of the in-memory host, holding these values.
std::shared_ptr<ICursor> Cursor(const std::vector<Value>& values) {
    const bool text = !values.empty() && std::holds_alternative<std::string>(values.front());
    memory::MemoryApplication app;
    const auto layer = app.AddFeatureLayer("/data", "P", kGeometryPolygon,
                                           {{"V", text ? kFieldTypeString : kFieldTypeDouble}});
    for (const Value& value : values) {
        memory::MemoryApplication::MemoryClass(*layer).AddRow({value});
    }
    return layer->Search(true);
}

// Statistics of field V over these values.
std::unique_ptr<DataStatistics> Over(const std::vector<Value>& values,
                                     const std::string& field = "V") {
    auto statistics = std::make_unique<DataStatistics>();
    statistics->SetField(field);
    statistics->SetCursor(Cursor(values));
    return statistics;
}

TEST(DataStatisticsTest, distinctValuesInFoundOrderAndFiguresOfNonNullValues) {
    const auto statistics = Over({3.0, -2.0, Value{}, 7.5, 3.0, -0.0, 0.0});
    EXPECT_EQ(statistics->UniqueValues(), (std::vector<Value>{3.0, -2.0, 7.5, -0.0}));
    EXPECT_EQ(statistics->UniqueValueCount(), 4);
    const auto results = statistics->Statistics();
    EXPECT_EQ(results->Count(), 6);
    EXPECT_EQ(results->Minimum(), -2.0);
    EXPECT_EQ(results->Maximum(), 7.5);
    const double mean = 11.5 / 6.0;
    EXPECT_DOUBLE_EQ(results->Mean(), mean);
    double squares = 0;
    for (const double x : {3.0, -2.0, 7.5, 3.0, 0.0, 0.0}) {
        squares += (x - mean) * (x - mean);
    }
    // Population standard deviation: divided by the count, not count - 1.
    EXPECT_NEAR(results->StandardDeviation(), std::sqrt(squares / 6.0), 1e-12);
}

TEST(DataStatisticsTest, noValuesGivesZeroCountAndZeroFigures) {
    const auto statistics = Over({Value{}, Value{}});
    EXPECT_TRUE(statistics->UniqueValues().empty());
    const auto results = statistics->Statistics();
    EXPECT_EQ(results->Count(), 0);
    EXPECT_EQ(results->Mean(), 0.0);
    EXPECT_EQ(results->StandardDeviation(), 0.0);
}

TEST(DataStatisticsTest, textFieldHasDistinctValuesButNoFiguresAndAnUnknownFieldIsNamed) {
    const auto statistics = Over({std::string("b"), std::string("a"), std::string("b")});
    EXPECT_EQ(statistics->UniqueValues(), (std::vector<Value>{std::string("b"), std::string("a")}));
    EXPECT_EQ(Thrown([&] { statistics->Statistics(); }).Number(), error_number::kTypeMismatch);
    EXPECT_EQ(Thrown([&] { Over({}, "POP")->UniqueValues(); }).Description(),
              "Field not found: POP");
}

} // namespace
} // namespace quorel::host::map
