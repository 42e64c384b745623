#include "host/map/DataStatistics.h"

#include "util/Error.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <cmath>

namespace quorel::host::map {
namespace {

using quorel::test::Thrown;

// Rows of one field "V" (index 0), from a list of values.
class ListCursor final : public ICursor {
public:
    explicit ListCursor(std::vector<Value> values) : m_values(std::move(values)) {}

    std::shared_ptr<IRow> NextRow() override {
        if (m_next >= m_values.size()) {
            return nullptr;
        }
        return std::make_shared<ListRow>(m_values[m_next++]);
    }
    std::shared_ptr<IFields> Fields() const override { return std::make_shared<OneField>(); }

private:
    class ListRow final : public IRow {
    public:
        explicit ListRow(Value value) : m_value(std::move(value)) {}
        Value GetValue(std::int32_t) const override { return m_value; }

    private:
        Value m_value;
    };
    class OneField final : public IFields {
    public:
        std::int32_t FieldCount() const override { return 1; }
        std::shared_ptr<IField> Field(std::int32_t) const override { return nullptr; }
        std::int32_t FindField(const std::string& name) const override {
            return name == "V" ? 0 : -1;
        }
    };

    std::vector<Value> m_values;
    std::size_t m_next = 0;
};

// Statistics of field V over these values.
std::unique_ptr<DataStatistics> Over(std::vector<Value> values, const std::string& field = "V") {
    auto statistics = std::make_unique<DataStatistics>();
    statistics->SetField(field);
    statistics->SetCursor(std::make_shared<ListCursor>(std::move(values)));
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

TEST(DataStatisticsTest, aNewCursorStartsAfresh) {
    const auto statistics = Over({1.0, 2.0});
    EXPECT_EQ(statistics->UniqueValueCount(), 2);
    statistics->SetCursor(std::make_shared<ListCursor>(std::vector<Value>{5.0}));
    EXPECT_EQ(statistics->Statistics()->Count(), 1);
    EXPECT_EQ(statistics->Statistics()->Mean(), 5.0);
    EXPECT_EQ(statistics->Statistics()->StandardDeviation(), 0.0);
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
