#pragma once

// The number of the error a host gives when asked to lock a layer for writing, or 0 when it
// gives the lock (released again at once).

#include "host/api/Host.h"
#include "util/Error.h"

#include <cstdint>
#include <string>

namespace quorel::test {

inline std::int32_t LockError(host::IApplication& app, const std::string& folder,
                              const std::string& name) {
    try {
        app.LockLayerForWriting(folder, name);
    } catch (const Error& error) {
        return error.Number();
    }
    return 0;
}

} // namespace quorel::test
