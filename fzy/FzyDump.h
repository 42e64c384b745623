#pragma once

#include <cstdint>
#include <ostream>
#include <span>

namespace quorel::fzy {

// Prints the header and every counted entry of a metadata file (kind, live or deleted, offset,
// length and each field) for people who need to see what a file holds. On a corrupt file it
// prints what was readable, then throws the quorel::Error that stopped it.
void DumpFzy(std::span<const std::uint8_t> bytes, std::ostream& out);

} // namespace quorel::fzy
