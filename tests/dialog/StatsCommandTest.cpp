// quorel stats, run as a program.

#include "tests/dialog/DialogFixture.h"

namespace quorel::dialog::test {
namespace {

using StatsCommandTest = DialogTest;

TEST_F(StatsCommandTest, printsTheValuesAnEmptyLineAndTheSummary) {
    const std::string path = WritePolygons("data", "parcels", {{"V", {3, -2, 7.5, 3}}});
    m_session->module1.InitLanguage(); // the texts the program prints
    const auto r = Quorel({"stats", path, "V"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("-2\n3\n7.5\n\n" + Text(140) + " : \nV\n\n" + Text(141) + " : -2\n", 0),
              0u)
        << r.out;
    EXPECT_TRUE(r.out.ends_with(Text(145) + " : 4\n" + Text(146) + " : 3\n")) << r.out;
}

TEST_F(StatsCommandTest, aMissingFieldFailsAndAMissingArgumentIsAUsageError) {
    const std::string path = WritePolygons("data", "parcels", {{"V", {1}}});
    EXPECT_EQ(Quorel({"stats", path, "NOPE"}).status, 1);
    EXPECT_EQ(Quorel({"stats", path}).status, 64);
}

} // namespace
} // namespace quorel::dialog::test
