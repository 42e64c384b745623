#include "util/FileReplacement.h"

#include "util/Error.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace quorel::util {
namespace {

constexpr std::string_view kTemporaryMark = ".quorel-";
constexpr std::size_t kUniquePartLength = 6; // mkstemp's XXXXXX

std::string FolderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string NameOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The process's umask, read without changing it (umask(2) alone cannot, and setting it back
// would race with other threads creating files).
mode_t CurrentUmask() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("Umask:")) {
            return static_cast<mode_t>(std::strtoul(line.c_str() + 6, nullptr, 8));
        }
    }
    return 022;
}

} // namespace

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        Close();
        m_fd = other.m_fd;
        other.m_fd = -1;
    }
    return *this;
}

int FileDescriptor::Close() noexcept {
    const int result = m_fd >= 0 ? ::close(m_fd) : 0;
    m_fd = -1;
    return result;
}

FileReplacement::FileReplacement(std::string target, std::string source, mode_t newFileMode)
    : m_target(std::move(target)), m_source(std::move(source)) {
    std::string pattern = m_target + std::string(kTemporaryMark) + "XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    m_file = FileDescriptor(::mkostemp(name.data(), O_CLOEXEC));
    if (m_file.Get() < 0) {
        throw FileError(errno, m_source, m_target);
    }
    m_temporary.assign(name.data());
    try {
        struct stat existing {};
        if (::stat(m_target.c_str(), &existing) == 0) {
            // The owner first: changing it may clear the set-id bits that the mode then restores.
            if ((existing.st_uid != ::geteuid() || existing.st_gid != ::getegid()) &&
                ::fchown(m_file.Get(), existing.st_uid, existing.st_gid) != 0) {
                // Only root may give a file away; a member of the group keeps at least the group.
                static_cast<void>(::fchown(m_file.Get(), static_cast<uid_t>(-1), existing.st_gid));
            }
            if (::fchmod(m_file.Get(), existing.st_mode & 07777) != 0) {
                throw FileError(errno, m_source, m_temporary);
            }
        } else if (::fchmod(m_file.Get(), newFileMode & ~CurrentUmask() & 07777) != 0) {
            throw FileError(errno, m_source, m_temporary);
        }
    } catch (...) {
        m_file.Close();
        ::unlink(m_temporary.c_str());
        throw;
    }
}

FileReplacement::~FileReplacement() {
    if (!m_committed) {
        m_file.Close();
        ::unlink(m_temporary.c_str());
    }
}

void FileReplacement::Write(std::string_view bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(m_file.Get(), bytes.data() + done, bytes.size() - done);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw FileError(errno, m_source, m_temporary);
        }
        done += static_cast<std::size_t>(written);
    }
}

void FileReplacement::Commit() {
    // A close that fails may have lost written data (NFS): it counts as a failed write.
    if (::fsync(m_file.Get()) != 0 || m_file.Close() != 0) {
        throw FileError(errno, m_source, m_temporary);
    }
    if (::rename(m_temporary.c_str(), m_target.c_str()) != 0) {
        throw FileError(errno, m_source, m_target);
    }
    m_committed = true;
    // The rename itself lasts through a crash only once the folder is on disk too; some file
    // systems cannot sync a folder, and the new file is in place either way.
    const FileDescriptor folder(
        ::open(FolderOf(m_target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.Get() >= 0) {
        ::fsync(folder.Get());
    }
}

void ReplaceFile(const std::string& target, std::string_view content, const std::string& source,
                 mode_t newFileMode) {
    FileReplacement replacement(target, source, newFileMode);
    replacement.Write(content);
    replacement.Commit();
}

bool IsReplacementTemporary(std::string_view fileName, std::string_view targetName) {
    if (fileName.size() != targetName.size() + kTemporaryMark.size() + kUniquePartLength ||
        !fileName.starts_with(targetName) ||
        fileName.substr(targetName.size(), kTemporaryMark.size()) != kTemporaryMark) {
        return false;
    }
    for (const char c : fileName.substr(targetName.size() + kTemporaryMark.size())) {
        const bool alphanumeric =
            (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (!alphanumeric) {
            return false;
        }
    }
    return true;
}

int RemoveStaleReplacements(const std::string& target) noexcept {
    const std::string folder = FolderOf(target);
    const std::string name = NameOf(target);
    DIR* const directory = ::opendir(folder.c_str());
    if (directory == nullptr) {
        return 0;
    }
    int removed = 0;
    while (const dirent* entry = ::readdir(directory)) {
        if (IsReplacementTemporary(entry->d_name, name) &&
            ::unlinkat(::dirfd(directory), entry->d_name, 0) == 0) {
            ++removed;
        }
    }
    ::closedir(directory);
    return removed;
}

} // namespace quorel::util
