#pragma once

#include <map>
#include <string>
#include <sys/types.h>
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

// Starts a program and leaves it running, its standard output and error both going to the file
// `output`; unprivileged, it runs as tests/support/Unprivileged.h's child does.
pid_t StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::string& output,
                   const std::map<std::string, std::string>& environment = {},
                   bool unprivileged = false);

// Waits for a started program: its exit status, or -1 when it did not exit normally (killed).
int WaitProgram(pid_t pid);

} // namespace quorel::test
