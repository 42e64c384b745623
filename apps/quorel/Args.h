#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorel::cli {

inline constexpr int kExitUsage = 64;

// A wrong command line; main prints its one-line message and exits 64.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct OptionSpec {
    std::string longName;  // without "--", e.g. "kind"
    char shortName = '\0'; // e.g. 'a', or '\0'
    bool takesValue = true;
};

// The options and positional arguments of one subcommand. An option that takes a value takes
// the next argument whatever it looks like, so "-a -5" works; "--" ends the options; a negative
// number where an option could stand is a positional value.
class Args {
public:
    Args(const std::vector<std::string>& arguments, const std::vector<OptionSpec>& specs);

    bool Has(const std::string& longName) const { return m_values.count(longName) > 0; }
    std::optional<std::string> Value(const std::string& longName) const;
    std::string Required(const std::string& longName) const;
    const std::vector<std::string>& Positionals() const { return m_positionals; }

private:
    std::map<std::string, std::string> m_values;
    std::vector<std::string> m_positionals;
};

// Reads a whole decimal integer, or throws UsageError naming the option.
int ParseIntOption(const std::string& text, const std::string& optionName);

} // namespace quorel::cli
