#include "RunProgram.h"

#include "tests/support/Unprivileged.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace quorel::test {

namespace {

// In a forked child: sets the environment and becomes the program; never returns.
[[noreturn]] void ExecInChild(const std::string& program, const std::vector<std::string>& arguments,
                              const std::map<std::string, std::string>& environment) {
    for (const auto& [name, value] : environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
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
    int inPipe[2], outPipe[2], errPipe[2];
    if (pipe(inPipe) != 0 || pipe(outPipe) != 0 || pipe(errPipe) != 0) {
        throw std::runtime_error("pipe failed");
    }
    const pid_t pid = fork();
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid == 0) {
        dup2(inPipe[0], 0);
        dup2(outPipe[1], 1);
        dup2(errPipe[1], 2);
        for (int fd : {inPipe[0], inPipe[1], outPipe[0], outPipe[1], errPipe[0], errPipe[1]}) {
            close(fd);
        }
        ExecInChild(program, arguments, environment);
    }
    close(inPipe[0]);
    close(outPipe[1]);
    close(errPipe[1]);

    ProgramResult result;
    std::size_t written = 0;
    int inFd = inPipe[1];
    if (input.empty()) {
        close(inFd);
        inFd = -1;
    }
    bool outOpen = true, errOpen = true;
    while (outOpen || errOpen) {
        pollfd fds[3] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}, {inFd, POLLOUT, 0}};
        if (poll(fds, inFd >= 0 ? 3 : 2, -1) < 0 && errno != EINTR) {
            break;
        }
        char buffer[4096];
        for (int k = 0; k < 2; ++k) {
            if ((fds[k].revents & (POLLIN | POLLHUP)) != 0) {
                const ssize_t n = read(fds[k].fd, buffer, sizeof buffer);
                if (n <= 0) {
                    (k == 0 ? outOpen : errOpen) = false;
                } else {
                    (k == 0 ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
                }
            }
        }
        if (inFd >= 0 && (fds[2].revents & (POLLOUT | POLLERR)) != 0) {
            const ssize_t n = write(inFd, input.data() + written, input.size() - written);
            written += n > 0 ? static_cast<std::size_t>(n) : input.size();
            if (written >= input.size()) {
                close(inFd);
                inFd = -1;
            }
        }
    }
    if (inFd >= 0) {
        close(inFd);
    }
    close(outPipe[0]);
    close(errPipe[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

pid_t StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::string& output, const std::map<std::string, std::string>& environment,
                   bool unprivileged) {
    const pid_t pid = fork();
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid == 0) {
        const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        const int in = open("/dev/null", O_RDONLY);
        if (out < 0 || in < 0 || (unprivileged && !DropPrivileges())) {
            _exit(126);
        }
        dup2(in, 0);
        dup2(out, 1);
        dup2(out, 2);
        close(in);
        close(out);
        ExecInChild(program, arguments, environment);
    }
    return pid;
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
