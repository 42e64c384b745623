#pragma once

#include <string>

namespace quorel::cli {

// The folder of the files this program goes with. Built, the text database lies beside the
// program and the component in the build's component folder; installed, both lie in the
// component folder (bin/../lib/quorel), found from the program's own place so that an installed
// tree may be moved.

// The folder holding text.mdb: beside the program, else the installed component folder.
std::string TextDatabaseFolder();

// The component that "quorel register" enters by default: the installed one, else the one built
// with this program.
std::string DefaultComponentPath();

} // namespace quorel::cli
