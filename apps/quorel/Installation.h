#pragma once

#include <string>
#include <vector>

namespace quorel::cli {

// The folder of the files this program goes with. Built, the text database lies beside the
// program and the component in the build's component folder; installed, both lie in the
// component folder (bin/../lib/quorel), found from the program's own place so that an installed
// tree may be moved.

// The folder holding text.mdb: beside the program, else the installed component folder.
std::string TextDatabaseFolder();

// The components that "quorel register" enters by default, Quorel.so and Pravel.so: each the
// installed one, else the one built with this program.
std::vector<std::string> DefaultComponentPaths();

// The export module (ExportModule.h): beside the program, else in the installed component
// folder; the place beside the program when it is in neither, for the message.
std::string ExportModulePath();

} // namespace quorel::cli
