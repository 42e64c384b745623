#pragma once

#include <string>

namespace quorel::errors {

// Who we are on disk: the folder of the file that holds this code, its name without extension,
// and the version as the reports print it (major.minor.revision).
struct ComponentIdentity {
    std::string folder;
    std::string name;
    std::string version;
};

// The file that holds the errors code: the shared library when the component is built as one,
// the executable when it is linked in statically. Found once, at first use.
const ComponentIdentity& OwnComponent();

// "10.3.2" for version 10.3.0.2.
std::string ComponentVersionText();

} // namespace quorel::errors
