#pragma once

#include <map>
#include <string>
#include <vector>

namespace quorel::test {

struct ProgramResult {
    int status = -1; // exit status, or -1 when the program did not exit normally
    std::string out;
    std::string err;
};

// Runs a program with arguments, feeding input to its standard input, and collects both outputs.
// Extra environment variables are set for the child only.
ProgramResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input = {},
                         const std::map<std::string, std::string>& environment = {});

} // namespace quorel::test
