#include "criterion/Parameters.h"

#include "util/StringFunctions.h"
#include "util/TextSource.h"

#include <gtest/gtest.h>

#include <array>

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

TEST(CompleteParametersTest, setsTheUnusedParameters) {
    using Four = std::array<double, 4>;
    for (const auto& [kind, in, out] :
         {std::tuple{0, Four{1, 2, 3, 4}, Four{1, 2, 3, 4}},
          std::tuple{1, Four{3, -9999, -9999, -9999}, Four{3, 1e14, 1e15, 1e16}},
          std::tuple{2, Four{0, 10, 20, -9999}, Four{0, 10, 20, 1e15}},
          std::tuple{3, Four{0, 10, -9999, -9999}, Four{0, 10, 1e14, 1e15}},
          // The falling ramp moves its a and b to c and d.
          std::tuple{4, Four{0, 10, 7, 8}, Four{-1e16, -1e15, 0, 10}},
          std::tuple{5, Four{0, 10, 20, 30}, Four{0, 10, 20, 30}},
          std::tuple{7, Four{1, 2, 3, 4}, Four{1, 2, 3, 4}}}) {
        Four completed = in;
        CompleteParameters(kind, completed[0], completed[1], completed[2], completed[3]);
        EXPECT_EQ(completed, out) << "kind " << kind;
    }
}

TEST(CheckParameterOrderTest, acceptsEqualNeighboursAndRefusesAnyInversion) {
    EXPECT_TRUE(CheckParameterOrder(0, 0, 0, 0));
    EXPECT_TRUE(CheckParameterOrder(0, 10, 20, 30));
    EXPECT_FALSE(CheckParameterOrder(1, 0, 2, 3));
    EXPECT_FALSE(CheckParameterOrder(0, 2, 1, 3));
    EXPECT_FALSE(CheckParameterOrder(0, 1, 3, 2));
}

// The boxes as typed, completed: the message shows the values the order check saw.
TEST(OrderMessageTest, showsTheCompletedValuesWithTheUsersMark) {
    struct Case {
        char mark;
        int kind;
        std::array<const char*, 4> boxes;
        const char* values;
    };
    const Texts texts;
    for (const Case& c : {Case{'.', 3, {"5", "2", "", ""}, ":5:2:100000000000000:1E+15"},
                          Case{'.', 4, {"10", "0", "0", "0"}, ":-1E+16:-1E+15:10:0"},
                          Case{',', 2, {"0", "", "2.5", ""}, ":0:-9999:2,5:1E+15"}}) {
        SCOPED_TRACE(c.values);
        quorel::util::SetDecimalSeparator(c.mark);
        double a = ParseNumberText(c.boxes[0], kDefaultA);
        double b = ParseNumberText(c.boxes[1], kDefaultBCD);
        double cc = ParseNumberText(c.boxes[2], kDefaultBCD);
        double d = ParseNumberText(c.boxes[3], kDefaultBCD);
        CompleteParameters(c.kind, a, b, cc, d);
        EXPECT_FALSE(CheckParameterOrder(a, b, cc, d));
        EXPECT_EQ(ParameterOrderMessage(texts, a, b, cc, d),
                  std::string("Paramètres dans le désordre") + c.values);
    }
    quorel::util::SetDecimalSeparator(std::nullopt);
}

} // namespace
