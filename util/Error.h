#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace quorel {

// The one error type of the project: thrown inside, caught and reported by the guarded
// procedures. Numbers are 32-bit and printed in decimal, as the reports show them.
class Error : public std::runtime_error {
public:
    Error(std::int32_t number, std::string source, std::string description)
        : std::runtime_error(description), m_number(number), m_source(std::move(source)),
          m_description(std::move(description)) {}

    std::int32_t Number() const noexcept { return m_number; }
    const std::string& Source() const noexcept { return m_source; }
    const std::string& Description() const noexcept { return m_description; }

private:
    std::int32_t m_number;
    std::string m_source;
    std::string m_description;
};

// Stable numbers of the common failures. The first ones keep the numbers that the reports of the
// original platform used, so that logs stay comparable.
namespace error_number {
inline constexpr std::int32_t kOverflow = 6;
inline constexpr std::int32_t kSubscriptOutOfRange = 9;
inline constexpr std::int32_t kDivisionByZero = 11;
inline constexpr std::int32_t kTypeMismatch = 13;
inline constexpr std::int32_t kInternalError = 51;
inline constexpr std::int32_t kBadFileNameOrNumber = 52;
inline constexpr std::int32_t kFileNotFound = 53;
inline constexpr std::int32_t kBadFileMode = 54;
inline constexpr std::int32_t kFileAlreadyOpen = 55;
inline constexpr std::int32_t kDeviceIo = 57;
inline constexpr std::int32_t kBadRecordLength = 59;
inline constexpr std::int32_t kDiskFull = 61;
inline constexpr std::int32_t kInputPastEnd = 62;
inline constexpr std::int32_t kPermissionDenied = 70;
inline constexpr std::int32_t kPathNotFound = 76;
inline constexpr std::int32_t kInvalidArgument = 5;
inline constexpr std::int32_t kObjectVariableNotSet = 91;
inline constexpr std::int32_t kInvalidUseOfNull = 94;
inline constexpr std::int32_t kObjectRequired = 424;
inline constexpr std::int32_t kSyntaxError = 1002;
// Host (GIS) failures: layers, fields, tables, the field calculator.
inline constexpr std::int32_t kHostFailure = -2147467259;      // 0x80004005, unspecified failure
inline constexpr std::int32_t kHostInvalidIndex = -2147024809; // 0x80070057, invalid argument
// A layer's data refused for writing before anything is written (IApplication's
// LockLayerForWriting): another writer holds it, it cannot be written in place, it is damaged.
inline constexpr std::int32_t kHostLayerLocked = -2147220991;   // 0x80040201
inline constexpr std::int32_t kHostLayerReadOnly = -2147220990; // 0x80040202
inline constexpr std::int32_t kHostLayerDamaged = -2147220989;  // 0x80040203
} // namespace error_number

// Error for a failed system call on a file: number and description chosen from errno.
Error FileError(int errnoValue, const std::string& source, const std::string& path);

} // namespace quorel
