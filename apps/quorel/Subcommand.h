#pragma once

#include <string>
#include <vector>

namespace quorel::cli {

// One subcommand of the quorel program. Run gets the arguments after the subcommand's name
// (and any word the subcommand consumed, e.g. "dump" of "fzy dump") and returns the exit status.
struct Subcommand {
    const char* name;
    const char* summary;
    const char* help; // full text of --help
    int (*run)(const std::vector<std::string>& arguments);
};

// Each subcommand's file defines one of these.
const Subcommand& ScriptCommand();
const Subcommand& SqlCommand();
const Subcommand& MembershipCommand();
const Subcommand& RunCommand();
const Subcommand& FzyCommand();
const Subcommand& MetaCommand();
const Subcommand& StatsCommand();
const Subcommand& PreviewCommand();
const Subcommand& RegisterCommand();
const Subcommand& AggregateCommand();
const Subcommand& QueryCommand();

} // namespace quorel::cli
