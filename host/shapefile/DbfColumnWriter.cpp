// Adds a column to a .dbf: the records go through memory batch by batch, on several threads, to
// a new table that replaces the old one whole.

#include "host/shapefile/DbfFileBytes.h"
#include "host/shapefile/DbfTable.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace quorel::host::shapefile {
namespace {

// Builds the records of the new table batch by batch, on every core, and writes each batch at
// its place in the new file: the batches are independent, so no core waits for another.
class ColumnWriter {
public:
    ColumnWriter(const DbfNewColumn& plan, int oldFile, const std::string& oldPath, int newFile,
                 const std::string& newPath, const DbfColumnFiller* filler,
                 const DbfWorkSharing& sharing)
        : m_plan(plan), m_oldFile(oldFile), m_oldPath(oldPath), m_newFile(newFile),
          m_newPath(newPath), m_filler(filler), m_threads(sharing.threads),
          m_batch(std::max<std::size_t>(1, sharing.batchBytes / plan.layout.recordLength)),
          m_batches((plan.table.recordCount + m_batch - 1) / m_batch),
          m_writeBackBatches(
              std::max<std::size_t>(1, kWriteBackBytes / (m_batch * plan.layout.recordLength))) {}

    // Throws the failure of the earliest batch that failed.
    void Run(const DbfProgress& progress) {
        const std::size_t wanted =
            m_threads > 0 ? m_threads : std::max(1u, std::thread::hardware_concurrency());
        const std::size_t helpers = m_batches < 2 ? 0 : std::min(wanted, m_batches) - 1;
        {
            std::vector<std::jthread> threads;
            for (std::size_t i = 0; i < helpers; ++i) {
                threads.emplace_back([this] { Work(nullptr); });
            }
            Work(&progress);
        } // the helpers are joined here
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
        // The last batch may have been another thread's.
        if (progress && m_reported < m_plan.table.recordCount) {
            progress(m_plan.table.recordCount);
        }
    }

private:
    void Work(const DbfProgress* progress) {
        const std::size_t oldLength = m_plan.table.recordLength;
        const std::size_t newLength = m_plan.layout.recordLength;
        const DbfField& field = m_plan.field;
        // Every byte is written before it is read: no need to clear the buffers first.
        const std::size_t capacity = std::min<std::size_t>(m_batch, m_plan.table.recordCount);
        // One buffer: the old records are read into its start and spread to their new places.
        const auto out = std::make_unique_for_overwrite<char[]>(capacity * newLength);
        std::unique_ptr<DbfColumnFiller::Scratch> scratch;
        while (true) {
            const std::size_t batch = m_next.fetch_add(1);
            if (batch >= m_batches || batch > m_failedBatch.load()) {
                return;
            }
            try {
                const std::size_t first = batch * m_batch;
                const std::size_t count = std::min(m_batch, m_plan.table.recordCount - first);
                const auto from = static_cast<off_t>(m_plan.table.headerLength + first * oldLength);
                ReadExactly(m_oldFile, out.get(), count * oldLength, from, m_oldPath);
                // The old table's cached pages are of no more use once replaced: let them go
                // now, on every core, rather than all at once when the old file is released.
                ::posix_fadvise(m_oldFile, from, static_cast<off_t>(count * oldLength),
                                POSIX_FADV_DONTNEED);
                // The filler fills the records in use; the others, and all without a filler,
                // get Null.
                // Last record first: each moves to a place no earlier record still occupies.
                for (std::size_t r = count; r-- > 0;) {
                    char* target = out.get() + r * newLength;
                    std::memmove(target, out.get() + r * oldLength, oldLength);
                    if (!m_filler || DbfBatchFile::IsDeleted(target)) {
                        std::memset(target + field.offset, '*', field.length);
                    }
                }
                if (m_filler) {
                    if (!scratch) {
                        scratch = m_filler->NewScratch();
                    }
                    m_filler->Fill(first, count, out.get(), scratch.get());
                }
                const auto at = static_cast<off_t>(m_plan.layout.headerLength + first * newLength);
                WriteExactly(m_newFile, out.get(), count * newLength, at, m_newPath);
                StartWriteBack(batch, at + static_cast<off_t>(count * newLength));
                const std::size_t done = m_done.fetch_add(count) + count;
                if (progress && *progress) {
                    m_reported = done;
                    (*progress)(done);
                }
            } catch (...) {
                const std::lock_guard<std::mutex> lock(m_mutex);
                if (batch < m_failedBatch.load()) {
                    m_failedBatch = batch;
                    m_failure = std::current_exception();
                }
            }
        }
    }

    // Starts putting the batches written so far on disk, so that the final flush has little to
    // wait for: after every few megabytes, not every batch, since each request takes the file's
    // block-mapping lock, which the other threads' writes wait for.
    void StartWriteBack(std::size_t batch, off_t end) const {
        if ((batch + 1) % m_writeBackBatches != 0 && batch + 1 != m_batches) {
            return;
        }
        const std::size_t since = batch + 1 - std::min(batch + 1, m_writeBackBatches);
        const auto start = static_cast<off_t>(m_plan.layout.headerLength +
                                              since * m_batch * m_plan.layout.recordLength);
        ::sync_file_range(m_newFile, start, end - start, SYNC_FILE_RANGE_WRITE);
    }

    static constexpr std::size_t kWriteBackBytes = std::size_t{4} << 20;

    const DbfNewColumn& m_plan;
    int m_oldFile;
    const std::string& m_oldPath;
    int m_newFile;
    const std::string& m_newPath;
    const DbfColumnFiller* m_filler;
    std::size_t m_threads; // 0: one per core
    std::size_t m_batch;   // records per batch
    std::size_t m_batches; // batches in the table
    std::size_t m_writeBackBatches;
    std::atomic<std::size_t> m_next{0};
    std::atomic<std::size_t> m_done{0};
    std::atomic<std::size_t> m_failedBatch{SIZE_MAX};
    std::size_t m_reported = 0; // the calling thread's
    std::mutex m_mutex;
    std::exception_ptr m_failure;
};

} // namespace

void WriteDbfColumn(const std::string& dbfPath, const DbfNewColumn& plan,
                    const DbfColumnFiller* filler, const DbfProgress& progress,
                    const DbfWorkSharing& sharing) {
    const FileHandle old(::open(dbfPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (old.Get() < 0) {
        ThrowFileError(errno, "open", dbfPath);
    }
    if (ReadDbfHeader(old.Get(), dbfPath).rawHeader != plan.table.rawHeader) {
        throw Error(error_number::kHostFailure, kDbfSource,
                    "Cannot add the field " + plan.field.name + ": the table " + dbfPath +
                        " changed meanwhile");
    }
    struct stat status {};
    if (::fstat(old.Get(), &status) != 0) {
        ThrowFileError(errno, "open", dbfPath);
    }
    CheckDbfRecordCount(plan.table, status.st_size, dbfPath);

    // The new table takes the old one's mode and owner.
    util::FileReplacement temp(dbfPath, kDbfSource);
    const std::string& tempPath = temp.TemporaryPath();
    // Room for the whole table at once: a full disk shows now, not after the work, and the
    // writes need not reserve their blocks page by page.
    const auto size =
        static_cast<off_t>(plan.layout.headerLength +
                           std::size_t{plan.table.recordCount} * plan.layout.recordLength + 1);
    if (::fallocate(temp.Descriptor(), 0, 0, size) != 0 && errno != EOPNOTSUPP) {
        ThrowFileError(errno, "write", tempPath);
    }
    WriteExactly(temp.Descriptor(), plan.layout.rawHeader.data(), plan.layout.rawHeader.size(), 0,
                 tempPath);
    ColumnWriter(plan, old.Get(), dbfPath, temp.Descriptor(), tempPath, filler, sharing)
        .Run(progress);
    if (filler) {
        filler->BeforeReplace();
    }
    const auto end = static_cast<off_t>(
        plan.layout.headerLength + std::size_t{plan.table.recordCount} * plan.layout.recordLength);
    WriteExactly(temp.Descriptor(), &kDbfEndOfFile, 1, end, tempPath);
    temp.Commit();
}

} // namespace quorel::host::shapefile
