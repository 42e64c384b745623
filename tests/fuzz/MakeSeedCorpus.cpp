// Writes a seed corpus for the fuzz target into the given folder: valid metadata files and the
// damaged ones the tests use.

#include "tests/fzy/FzyFiles.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace quorel::fzy;
using namespace quorel::fzy::test;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 64;
    }
    const std::filesystem::path folder = argv[1];
    std::filesystem::create_directories(folder);
    NumberEntry other = MakeNumber("FZY_B");
    other.NumberKind = 5;
    other.Folder = "C:\\SIG\\data";
    const Bytes a = EncodeNumberEntry(MakeNumber("FZY_A"));
    const Bytes b = EncodeNumberEntry(other);
    const Bytes r = EncodeRecordEntry(MakeRecord("REC"));
    const auto deleted = [](const Bytes& entry, std::int16_t kind) {
        return WithKind(entry, static_cast<std::int16_t>(kind + kDeletedKindStep));
    };
    std::vector<std::pair<std::string, Bytes>> seeds = {
        {"new", {1, 0, 0, 0, 0, 0, 0, 0}},
        {"header_only", MakeFile(0, 0, 0, {})},
        {"one_number", MakeFile(0, 1, 0, {a})},
        {"two_numbers", MakeFile(0, 2, 0, {a, b})},
        {"same_name_twice", MakeFile(0, 2, 0, {a, a})},
        {"record_and_numbers", MakeFile(1, 2, 0, {a, r, b})},
        {"deleted_kinds",
         MakeFile(1, 2, 2, {deleted(r, kRecordEntryKind), a, deleted(b, kNumberEntryKind)})},
        {"vanished_field", MakeFile(0, 2, 0, {b, a})},
    };
    for (const DamagedFzyFile& damaged : DamagedFzyFiles()) {
        seeds.emplace_back(std::string("damaged_") + damaged.name, damaged.file);
    }
    for (const auto& [name, bytes] : seeds) {
        std::ofstream out(folder / (name + ".fzy"), std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
    }
    return 0;
}
