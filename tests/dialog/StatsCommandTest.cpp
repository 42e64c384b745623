// quorel stats, run as a program.

#include "tests/dialog/DialogFixture.h"

#include <array>
#include <cstdio>
#include <sys/wait.h>

namespace quorel::dialog::test {
namespace {

class StatsCommandTest : public DialogTest {
protected:
    // Runs the program in the C locale with settings in the scratch folder.
    std::pair<int, std::string> Run(const std::string& arguments) {
        const std::string command = "env LC_ALL=C XDG_CONFIG_HOME='" +
                                    m_scratch.path().toStdString() + "' '" QUOREL_CLI "' " +
                                    arguments + " 2>&1";
        FILE* pipe = popen(command.c_str(), "r");
        std::string output;
        std::array<char, 4096> buffer{};
        while (const std::size_t n = fread(buffer.data(), 1, buffer.size(), pipe)) {
            output.append(buffer.data(), n);
        }
        const int status = pclose(pipe);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
    }
};

TEST_F(StatsCommandTest, printsTheValuesAnEmptyLineAndTheSummary) {
    const std::string path = WritePolygons("data", "parcels", {{"V", {3, -2, 7.5, 3}}});
    m_session->module1.InitLanguage(); // the texts the program prints
    const auto [status, output] = Run("stats '" + path + "' V");
    EXPECT_EQ(status, 0) << output;
    EXPECT_EQ(output.rfind("-2\n3\n7.5\n\n" + Text(140) + " : \nV\n\n" + Text(141) + " : -2\n", 0),
              0u)
        << output;
    EXPECT_TRUE(output.ends_with(Text(145) + " : 4\n" + Text(146) + " : 3\n")) << output;
}

TEST_F(StatsCommandTest, aMissingFieldFailsAndAMissingArgumentIsAUsageError) {
    const std::string path = WritePolygons("data", "parcels", {{"V", {1}}});
    EXPECT_EQ(Run("stats '" + path + "' NOPE").first, 1);
    EXPECT_EQ(Run("stats '" + path + "'").first, 64);
}

} // namespace
} // namespace quorel::dialog::test
