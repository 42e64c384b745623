#pragma once

// What the table file, the number reader and the column writer of a .dbf share: whole reads and
// writes at an offset, and the error for a damaged table. Private to this folder.

#include "util/Error.h"

#include <cstddef>
#include <string>
#include <sys/types.h>

namespace quorel::host::shapefile {

inline constexpr const char* kDbfSource = "ShapefileTable";
inline constexpr char kDbfEndOfFile = 0x1A;

Error DamagedTable(const std::string& path, const std::string& what);

// Reads exactly size bytes at offset, or throws (a file shorter than that is damaged).
void ReadExactly(int fd, char* destination, std::size_t size, off_t offset,
                 const std::string& path);
void WriteExactly(int fd, const char* source, std::size_t size, off_t offset,
                  const std::string& path);

} // namespace quorel::host::shapefile
