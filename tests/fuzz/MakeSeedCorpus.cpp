// Writes a seed corpus of valid metadata files for the fuzz target into the given folder.

#include "fzy/FzyFormat.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace quorel::fzy;
using Bytes = std::vector<std::uint8_t>;

NumberEntry Number(const std::string& field, std::int16_t kind, const std::string& folder) {
    return NumberEntry{field, kind,   field,       1.5,     2,       1e14,
                       -3.25, folder, "PARCELLES", 45356.5, kEndMark};
}

RecordEntry Record(const std::string& field) {
    return RecordEntry{field,           -7,     field + "_alias", "t3",        "t4",     "SLOPE",
                       "C:\\SIG\\data", "PARC", "ALTI",           "/data/sig", "RELIEF", 45356.25};
}

Bytes File(std::int16_t records, std::int16_t numbers, std::int16_t deleted,
           const std::vector<Bytes>& entries) {
    FzyHeader header;
    header.RecordCount = records;
    header.NumberCount = numbers;
    header.DeletedCount = deleted;
    Bytes file = EncodeHeader(header);
    for (const auto& entry : entries) {
        file.insert(file.end(), entry.begin(), entry.end());
    }
    return file;
}

Bytes Deleted(Bytes entry) {
    entry[2] = static_cast<std::uint8_t>(entry[2] + kDeletedKindStep);
    return entry;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 64;
    }
    const std::filesystem::path folder = argv[1];
    std::filesystem::create_directories(folder);
    const Bytes a = EncodeNumberEntry(Number("FZY_A", 2, "/data/sig"));
    const Bytes b = EncodeNumberEntry(Number("FZY_B", 5, "C:\\SIG\\data"));
    const Bytes r = EncodeRecordEntry(Record("REC"));
    const std::vector<std::pair<std::string, Bytes>> seeds = {
        {"new", {1, 0, 0, 0, 0, 0, 0, 0}},
        {"header_only", File(0, 0, 0, {})},
        {"one_number", File(0, 1, 0, {a})},
        {"two_numbers", File(0, 2, 0, {a, b})},
        {"same_name_twice", File(0, 2, 0, {a, a})},
        {"record_and_numbers", File(1, 2, 0, {a, r, b})},
        {"deleted_kinds", File(1, 2, 2, {Deleted(r), a, Deleted(b)})},
        {"vanished_field", File(0, 2, 0, {b, a})},
    };
    for (const auto& [name, bytes] : seeds) {
        std::ofstream out(folder / (name + ".fzy"), std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
    }
    return 0;
}
