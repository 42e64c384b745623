#pragma once

// Replacing a file safely, the one way every writer of the project does it: the new content goes
// to a temporary beside the target, named uniquely by the system (so that no other file, a user's
// or another writer's, is ever opened or overwritten), is put on disk, and is renamed over the
// target in one step. The target is therefore always either the old file or the new one, whole.

#include <string>
#include <string_view>
#include <sys/types.h>

namespace quorel::util {

// Owns one file descriptor and closes it at the end.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { Close(); }

    int Get() const { return m_fd; }
    // Closes now; the result of close(2), 0 when nothing was open.
    int Close() noexcept;

private:
    int m_fd = -1;
};

// One replacement under way. The constructor makes the temporary (TARGET.quorel-XXXXXX) and gives
// it the target's mode and, where the system lets us (as the owner or as root), its owner and
// group; a target that does not exist yet gets newFileMode less the umask. The caller writes the
// new content through Descriptor() (or opens TemporaryPath() itself: it is a file we created),
// then Commit() flushes it, renames it over the target and flushes the folder. A replacement that
// is not committed removes its temporary. Failures throw quorel::Error from `source`.
class FileReplacement {
public:
    FileReplacement(std::string target, std::string source, mode_t newFileMode = 0666);
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    int Descriptor() const { return m_file.Get(); }
    const std::string& TemporaryPath() const { return m_temporary; }
    const std::string& Target() const { return m_target; }

    // Writes all of bytes at the descriptor's current offset.
    void Write(std::string_view bytes);
    void Commit();

private:
    std::string m_target;
    std::string m_source;
    std::string m_temporary;
    FileDescriptor m_file;
    bool m_committed = false;
};

// Replaces target by content in one step (FileReplacement, written and committed).
void ReplaceFile(const std::string& target, std::string_view content, const std::string& source,
                 mode_t newFileMode = 0666);

// Whether a file name is that of a temporary FileReplacement makes for a target of this name.
bool IsReplacementTemporary(std::string_view fileName, std::string_view targetName);

// Removes the temporaries that replacements of target left behind when their process was killed;
// returns how many. Only for a caller sure that no replacement of target is under way, in this
// process or another (one that holds the target's write lock): a live writer's temporary looks
// just the same. Never throws.
int RemoveStaleReplacements(const std::string& target) noexcept;

} // namespace quorel::util
