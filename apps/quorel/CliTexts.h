#pragma once

#include "util/TextSource.h"

namespace quorel::cli {

// The texts of the current language for the command line's messages.
const util::ITextSource& CliTexts();

} // namespace quorel::cli
