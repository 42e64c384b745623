#pragma once

#include "quorel/Com.h"

#include <utility>

namespace quorel::component {

// Owns one reference to an interface of a component object.
template <typename Interface> class ComPtr {
public:
    ComPtr() = default;
    // Takes over a reference the caller already holds.
    static ComPtr Adopt(Interface* p) {
        ComPtr result;
        result.m_p = p;
        return result;
    }
    ComPtr(const ComPtr& other) : m_p(other.m_p) {
        if (m_p != nullptr) {
            m_p->AddRef();
        }
    }
    ComPtr(ComPtr&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(m_p, other.m_p);
        return *this;
    }
    ~ComPtr() { Reset(); }

    void Reset() {
        if (m_p != nullptr) {
            std::exchange(m_p, nullptr)->Release();
        }
    }
    Interface* get() const { return m_p; }
    Interface* operator->() const { return m_p; }
    explicit operator bool() const { return m_p != nullptr; }

    // Asks for another interface of the same object; empty when it has none.
    template <typename Other> ComPtr<Other> Query(const com::Guid& iid) const {
        void* result = nullptr;
        if (m_p == nullptr || !com::Succeeded(m_p->QueryInterface(iid, &result))) {
            return {};
        }
        return ComPtr<Other>::Adopt(static_cast<Other*>(result));
    }

private:
    Interface* m_p = nullptr;
};

} // namespace quorel::component
