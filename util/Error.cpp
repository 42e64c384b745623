#include "util/Error.h"

#include <cerrno>
#include <cstring>

namespace quorel {

Error FileError(int errnoValue, const std::string& source, const std::string& path) {
    switch (errnoValue) {
    case ENOENT:
        return Error(error_number::kFileNotFound, source, "File not found: " + path);
    case ENOTDIR:
        return Error(error_number::kPathNotFound, source, "Path not found: " + path);
    case EACCES:
    case EPERM:
    case EROFS:
        return Error(error_number::kPermissionDenied, source, "Permission denied: " + path);
    case ENOSPC:
    case EDQUOT:
        return Error(error_number::kDiskFull, source, "Disk full: " + path);
    default:
        return Error(error_number::kDeviceIo, source,
                     "Device I/O error: " + path + ": " + std::strerror(errnoValue));
    }
}

} // namespace quorel
