#pragma once

#include "quorel/Com.h"

#include <atomic>
#include <cstdint>

namespace quorel::component {

// Objects of the component alive now, and locks the hosts hold on the server; the component may
// be unloaded only when both are zero.
std::atomic<int>& LiveObjects();
std::atomic<int>& ServerLocks();

// Reference counting shared by the component's classes. Objects are created with a count of 1
// and destroyed by the Release that brings it to 0.
class RefCounted {
public:
    RefCounted() { ++LiveObjects(); }
    virtual ~RefCounted() { --LiveObjects(); }
    RefCounted(const RefCounted&) = delete;
    RefCounted& operator=(const RefCounted&) = delete;

protected:
    std::uint32_t AddRefImpl() { return ++m_references; }
    std::uint32_t ReleaseImpl() {
        const std::uint32_t left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

private:
    std::atomic<std::uint32_t> m_references{1};
};

// Hands out interface pointer p for iid after AddRef.
template <typename Interface> com::HResult Hand(Interface* p, void** object) {
    p->AddRef();
    *object = p;
    return com::kOk;
}

} // namespace quorel::component
