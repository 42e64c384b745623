// Counts the values of numeric columns outside an interval: the table read in batches shared
// among the processor's cores, each value read by the column reader the calculator uses, so
// that a check before a calculation costs a fraction of the calculation.

#include "host/shapefile/DbfFileBytes.h"
#include "host/shapefile/DbfTable.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <thread>

namespace quorel::host::shapefile {

std::size_t CountValuesOutside(const double* values, const std::uint8_t* isNull,
                               const char* records, std::size_t recordLength, std::size_t count,
                               double low, double high) {
    std::size_t n = 0;
    for (std::size_t r = 0; r < count; ++r) {
        const bool in = isNull[r] != 0 || (values[r] >= low && values[r] <= high);
        n += !in && !DbfBatchFile::IsDeleted(records + r * recordLength) ? 1 : 0;
    }
    return n;
}

std::vector<std::size_t> CountDbfValuesOutside(const std::string& dbfPath,
                                               const std::vector<std::string>& fields, double low,
                                               double high, const DbfWorkSharing& sharing) {
    const FileHandle file(::open(dbfPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.Get() < 0) {
        ThrowFileError(errno, "open", dbfPath);
    }
    const DbfHeader header = ReadDbfHeader(file.Get(), dbfPath);
    std::vector<DbfNumberReader> readers;
    for (const std::string& name : fields) {
        const auto found = header.Find(name);
        if (!found) {
            throw Error(error_number::kHostFailure, kDbfSource, "Field not found: " + name);
        }
        if (!header.fields[*found].IsNumeric()) {
            throw Error(error_number::kTypeMismatch, kDbfSource, "Type mismatch: " + name);
        }
        readers.emplace_back(header.fields[*found]);
    }

    const std::size_t length = header.recordLength;
    const std::size_t batch = std::max<std::size_t>(1, sharing.batchBytes / length);
    const std::size_t batches = (header.recordCount + batch - 1) / batch;
    std::atomic<std::size_t> next{0};
    std::mutex mutex;
    std::vector<std::size_t> outside(fields.size(), 0);
    std::exception_ptr failure;
    const auto work = [&] {
        std::vector<std::size_t> counted(fields.size(), 0);
        std::vector<char> records;
        std::vector<double> values;
        std::vector<std::uint8_t> isNull;
        try {
            for (std::size_t b = next++; b < batches; b = next++) {
                const std::size_t first = b * batch;
                const std::size_t count = std::min<std::size_t>(batch, header.recordCount - first);
                records.resize(count * length);
                values.resize(count);
                isNull.resize(count);
                ReadExactly(file.Get(), records.data(), records.size(),
                            static_cast<off_t>(header.headerLength + first * length), dbfPath);
                for (std::size_t k = 0; k < readers.size(); ++k) {
                    readers[k].Read(records.data(), length, count, values.data(), isNull.data());
                    counted[k] += CountValuesOutside(values.data(), isNull.data(), records.data(),
                                                     length, count, low, high);
                }
            }
        } catch (...) {
            next = batches; // the others stop too
            const std::lock_guard<std::mutex> lock(mutex);
            failure = std::current_exception();
            return;
        }
        const std::lock_guard<std::mutex> lock(mutex);
        for (std::size_t k = 0; k < counted.size(); ++k) {
            outside[k] += counted[k];
        }
    };
    const std::size_t wanted =
        sharing.threads > 0 ? sharing.threads : std::max(1u, std::thread::hardware_concurrency());
    {
        std::vector<std::jthread> helpers;
        for (std::size_t i = 1; i < std::min(wanted, batches); ++i) {
            helpers.emplace_back(work);
        }
        work();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    return outside;
}

} // namespace quorel::host::shapefile
