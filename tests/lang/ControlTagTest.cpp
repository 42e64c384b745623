#include "lang/ControlTag.h"

#include "util/StringFunctions.h"

#include <gtest/gtest.h>

namespace quorel::lang {
namespace {

TEST(ControlTagTest, readsTextIdSuffixAndTooltip) {
    for (const auto& [tag, expected] :
         {std::pair{"12", ControlTag{12, "", 0}}, std::pair{"12:", ControlTag{12, " :", 0}},
          std::pair{":12", ControlTag{12, " :", 0}}, std::pair{"tt=7", ControlTag{0, "", 7}},
          std::pair{"tt=7,9", ControlTag{0, "", 7}}, std::pair{"9,tt=7", ControlTag{0, "", 7}},
          std::pair{"tt= 7 ,9", ControlTag{0, "", 7}}, std::pair{"", ControlTag{0, "", 0}},
          std::pair{"abc", ControlTag{0, "", 0}}, std::pair{"tt=x", ControlTag{0, "", 0}},
          std::pair{"TT=7", ControlTag{0, "", 0}}, std::pair{" 12 ", ControlTag{12, "", 0}},
          std::pair{"40000", ControlTag{0, "", 0}}, std::pair{"tt=40000", ControlTag{0, "", 0}},
          std::pair{"tt=7:", ControlTag{0, " :", 0}}, std::pair{"tt=,9", ControlTag{0, "", 0}}}) {
        EXPECT_EQ(ParseControlTag(tag), expected) << ::testing::PrintToString(tag);
    }
}

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
