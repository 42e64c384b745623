#include "lang/ControlTag.h"

#include "util/StringFunctions.h"

#include <gtest/gtest.h>

namespace quorel::lang {
namespace {

struct TagCase {
    const char* tag;
    ControlTag expected;
};

void PrintTo(const TagCase& c, std::ostream* os) {
    *os << ::testing::PrintToString(c.tag);
}

class ControlTagTest : public testing::TestWithParam<TagCase> {};

TEST_P(ControlTagTest, readsTextIdSuffixAndTooltip) {
    EXPECT_EQ(ParseControlTag(GetParam().tag), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Grammar, ControlTagTest,
                         testing::Values(TagCase{"12", {12, "", 0}}, TagCase{"12:", {12, " :", 0}},
                                         TagCase{":12", {12, " :", 0}}, TagCase{"tt=7", {0, "", 7}},
                                         TagCase{"tt=7,9", {0, "", 7}},
                                         TagCase{"9,tt=7", {0, "", 7}},
                                         TagCase{"tt= 7 ,9", {0, "", 7}}, TagCase{"", {0, "", 0}},
                                         TagCase{"abc", {0, "", 0}}, TagCase{"tt=x", {0, "", 0}},
                                         TagCase{"TT=7", {0, "", 0}}, TagCase{" 12 ", {12, "", 0}},
                                         TagCase{"40000", {0, "", 0}},
                                         TagCase{"tt=40000", {0, "", 0}},
                                         TagCase{"tt=7:", {0, " :", 0}}));

TEST(TagTextIdTest, followsTheUsersDecimalMark) {
    util::SetDecimalSeparator(',');
    EXPECT_EQ(TagTextId("12,4"), 12);
    EXPECT_EQ(TagTextId("12.4"), std::nullopt);
    util::SetDecimalSeparator('.');
    EXPECT_EQ(TagTextId("12.6"), 13);
    util::SetDecimalSeparator(std::nullopt);
}

} // namespace
} // namespace quorel::lang
