#include "criterion/Parameters.h"

#include "util/StringFunctions.h"
#include "util/TextSource.h"

#include <gtest/gtest.h>

#include <ostream>

namespace {

using namespace quorel::criterion;

class Texts : public quorel::util::ITextSource {
public:
    std::string ResourceString(std::int16_t id) const override {
        return id == 132 ? "Paramètres dans le désordre" : "";
    }
};

class DecimalMarkFixture : public ::testing::TestWithParam<char> {
protected:
    void SetUp() override { quorel::util::SetDecimalSeparator(GetParam()); }
    void TearDown() override { quorel::util::SetDecimalSeparator(std::nullopt); }
};

TEST_P(DecimalMarkFixture, readsEitherMarkAndFallsBackOnTheDefault) {
    EXPECT_EQ(ParseNumberText("2.5", 0), 2.5);
    EXPECT_EQ(ParseNumberText("2,5", 0), 2.5);
    EXPECT_EQ(ParseNumberText(" 1,5 ", 0), ParseNumberText("1.5", 0));
    EXPECT_EQ(ParseNumberText("-3", 0), -3.0);
    EXPECT_EQ(ParseNumberText("1E+15", 0), 1e15);
    EXPECT_EQ(ParseNumberText("", kDefaultA), 0.0);
    EXPECT_EQ(ParseNumberText("   ", kDefaultBCD), -9999.0);
    EXPECT_EQ(ParseNumberText("abc", kDefaultBCD), -9999.0);
    EXPECT_EQ(ParseNumberText("1.2.3", kDefaultBCD), -9999.0);
    EXPECT_EQ(ParseNumberText("1,234.5", kDefaultBCD), -9999.0);
}

INSTANTIATE_TEST_SUITE_P(BothMarks, DecimalMarkFixture, ::testing::Values('.', ','));

struct CompletionCase {
    int kind;
    double in[4];
    double out[4];
};

void PrintTo(const CompletionCase& c, std::ostream* os) {
    *os << "kind " << c.kind;
}

class CompleteParametersTest : public ::testing::TestWithParam<CompletionCase> {};

TEST_P(CompleteParametersTest, setsTheUnusedParameters) {
    const auto& c = GetParam();
    double a = c.in[0], b = c.in[1], cc = c.in[2], d = c.in[3];
    CompleteParameters(c.kind, a, b, cc, d);
    EXPECT_EQ(a, c.out[0]);
    EXPECT_EQ(b, c.out[1]);
    EXPECT_EQ(cc, c.out[2]);
    EXPECT_EQ(d, c.out[3]);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, CompleteParametersTest,
    ::testing::Values(CompletionCase{0, {1, 2, 3, 4}, {1, 2, 3, 4}},
                      CompletionCase{1, {3, -9999, -9999, -9999}, {3, 1e14, 1e15, 1e16}},
                      CompletionCase{2, {0, 10, 20, -9999}, {0, 10, 20, 1e15}},
                      CompletionCase{3, {0, 10, -9999, -9999}, {0, 10, 1e14, 1e15}},
                      // The falling ramp moves its a and b to c and d.
                      CompletionCase{4, {0, 10, 7, 8}, {-1e16, -1e15, 0, 10}},
                      CompletionCase{5, {0, 10, 20, 30}, {0, 10, 20, 30}},
                      CompletionCase{7, {1, 2, 3, 4}, {1, 2, 3, 4}}));

TEST(CheckParameterOrderTest, acceptsEqualNeighboursAndRefusesAnyInversion) {
    EXPECT_TRUE(CheckParameterOrder(0, 0, 0, 0));
    EXPECT_TRUE(CheckParameterOrder(0, 10, 20, 30));
    EXPECT_FALSE(CheckParameterOrder(1, 0, 2, 3));
    EXPECT_FALSE(CheckParameterOrder(0, 2, 1, 3));
    EXPECT_FALSE(CheckParameterOrder(0, 1, 3, 2));
}

class OrderMessageTest : public ::testing::Test {
protected:
    void TearDown() override { quorel::util::SetDecimalSeparator(std::nullopt); }
    Texts texts;
};

TEST_F(OrderMessageTest, risingRampOutOfOrderShowsTheCompletedValues) {
    quorel::util::SetDecimalSeparator('.');
    double a = 5, b = 2, c = -9999, d = -9999;
    CompleteParameters(3, a, b, c, d);
    ASSERT_FALSE(CheckParameterOrder(a, b, c, d));
    EXPECT_EQ(ParameterOrderMessage(texts, a, b, c, d),
              "Paramètres dans le désordre:5:2:100000000000000:1E+15");
}

TEST_F(OrderMessageTest, fallingRampShowsTheShuffledValues) {
    quorel::util::SetDecimalSeparator('.');
    double a = 10, b = 0, c = 0, d = 0;
    CompleteParameters(4, a, b, c, d);
    ASSERT_FALSE(CheckParameterOrder(a, b, c, d));
    EXPECT_EQ(ParameterOrderMessage(texts, a, b, c, d),
              "Paramètres dans le désordre:-1E+16:-1E+15:10:0");
}

TEST_F(OrderMessageTest, triangleWithAnEmptyBoxAndUserCommaMark) {
    quorel::util::SetDecimalSeparator(',');
    double a = ParseNumberText("0", kDefaultA), b = ParseNumberText("", kDefaultBCD),
           c = ParseNumberText("2.5", kDefaultBCD), d = ParseNumberText("", kDefaultBCD);
    CompleteParameters(2, a, b, c, d);
    ASSERT_FALSE(CheckParameterOrder(a, b, c, d));
    EXPECT_EQ(ParameterOrderMessage(texts, a, b, c, d),
              "Paramètres dans le désordre:0:-9999:2,5:1E+15");
}

} // namespace
