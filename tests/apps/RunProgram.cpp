#include "RunProgram.h"

#include "tests/support/ScratchFolder.h"
#include "tests/support/Unprivileged.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace quorel::test {

namespace {

// Starts the program with its standard input, output and error on these files (out and err may
// be one); the child never returns.
pid_t Spawn(const std::string& program, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment, const std::string& in,
            const std::string& out, const std::string& err, bool unprivileged) {
    const pid_t pid = fork();
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid != 0) {
        return pid;
    }
    const int input = open(in.c_str(), O_RDONLY);
    const int output = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    const int error =
        err == out ? dup(output) : open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (input < 0 || output < 0 || error < 0 || (unprivileged && !DropPrivileges())) {
        _exit(126);
    }
    dup2(input, 0);
    dup2(output, 1);
    dup2(error, 2);
    for (const auto& [name, value] : environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const auto& arg : arguments) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
}

} // namespace

ProgramResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input,
                         const std::map<std::string, std::string>& environment) {
    const ScratchFolder files;
    WriteBytes(files.File("in"), input);
    ProgramResult result;
    result.status = WaitProgram(Spawn(program, arguments, environment, files.File("in"),
                                      files.File("out"), files.File("err"), false));
    result.out = ReadBytes(files.File("out"));
    result.err = ReadBytes(files.File("err"));
    return result;
}

pid_t StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::string& output, const std::map<std::string, std::string>& environment,
                   bool unprivileged) {
    return Spawn(program, arguments, environment, "/dev/null", output, output, unprivileged);
}

int WaitProgram(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace quorel::test
