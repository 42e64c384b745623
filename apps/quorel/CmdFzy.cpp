#include "apps/quorel/Args.h"
#include "apps/quorel/Subcommand.h"

#include "fzy/FzyDump.h"
#include "util/Error.h"

#include <cerrno>
#include <fstream>
#include <iostream>
#include <iterator>

namespace quorel::cli {
namespace {

std::vector<std::uint8_t> ReadWholeFile(const std::string& path) {
    errno = 0;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw FileError(errno != 0 ? errno : ENOENT, "fzy dump", path);
    }
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in),
                                     std::istreambuf_iterator<char>());
}

int RunFzy(const std::vector<std::string>& arguments) {
    const Args args(arguments, {});
    const auto& words = args.Positionals();
    if (words.empty() || words[0] != "dump") {
        throw UsageError("expected 'dump FILE.fzy'");
    }
    if (words.size() != 2) {
        throw UsageError("'fzy dump' takes one file");
    }
    const auto bytes = ReadWholeFile(words[1]);
    try {
        fzy::DumpFzy(bytes, std::cout);
    } catch (const Error&) {
        // What was readable comes first, then the error.
        std::cout.flush();
        throw;
    }
    return 0;
}

} // namespace

const Subcommand& FzyCommand() {
    static const Subcommand command{
        "fzy", "Show what a criterion metadata file (.fzy) holds",
        "Usage: quorel fzy dump FILE.fzy\n\n"
        "Prints the header and every entry the file counts: offset, length, kind (number or\n"
        "record, live or deleted) and each field. A corrupt file prints what was readable,\n"
        "then the error, and exits with status 1.\n",
        RunFzy};
    return command;
}

} // namespace quorel::cli
