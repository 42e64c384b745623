#pragma once

#include <string>

namespace quorel::util {

class IMessageUi;

// True when path names an existing file or folder, or, with wildcards, when some file matches.
// Otherwise, when ui is given, shows "File does not exist." and the path in a critical box.
// Never throws.
bool FileExists(const std::string& path, IMessageUi* ui = nullptr);

// True when path exists (file, folder or anything else the system can stat).
bool PathExists(const std::string& path);

// True when some file or folder matches path, which may hold the wildcards * ? and [ ].
bool FileFound(const std::string& path);

} // namespace quorel::util
