#pragma once

// Runs work in a child process that file permissions bind: as nobody when the tests run as root
// (root may write a read-only file, or into a read-only folder), as the current user otherwise.

#include <functional>
#include <grp.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quorel::test {

inline constexpr uid_t kNobody = 65534;
inline constexpr gid_t kNoGroup = 65534;

// Gives up root, if we have it, for good; false when that fails.
inline bool DropPrivileges() {
    if (::geteuid() != 0) {
        return true;
    }
    return ::setgroups(0, nullptr) == 0 && ::setresgid(kNoGroup, kNoGroup, kNoGroup) == 0 &&
           ::setresuid(kNobody, kNobody, kNobody) == 0;
}

// The child's exit status: work's result (keep it below 120), 126 when the privileges could not
// be dropped, 125 when work threw; -1 when the child did not exit normally. The child must not
// use the test framework's assertions: the parent checks.
inline int RunUnprivileged(const std::function<int()>& work) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        int status = 126;
        if (DropPrivileges()) {
            try {
                status = work();
            } catch (...) {
                status = 125;
            }
        }
        ::_exit(status);
    }
    int status = 0;
    if (pid < 0 || ::waitpid(pid, &status, 0) != pid) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace quorel::test
