#pragma once

// Runs a clean-up when the scope ends, however it ends. The clean-up must not throw.

#include <utility>

namespace quorel::util {

template <typename CleanUp> class ScopeGuard {
public:
    explicit ScopeGuard(CleanUp cleanUp) : m_cleanUp(std::move(cleanUp)) {}
    ~ScopeGuard() { m_cleanUp(); }

    ScopeGuard(const ScopeGuard&) = delete;
    ScopeGuard& operator=(const ScopeGuard&) = delete;

private:
    CleanUp m_cleanUp;
};

} // namespace quorel::util
