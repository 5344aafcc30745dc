// A reference-counted COM pointer: one reference held, released at the end.
#pragma once

#include <utility>

namespace kvmpd {

template <class Interface>
class ComPtr {
  public:
    ComPtr() = default;
    /// Shares: adds a reference of its own.
    explicit ComPtr(Interface* pointer) : m_pointer(pointer) {
        if (m_pointer) {
            m_pointer->AddRef();
        }
    }
    ComPtr(const ComPtr& other) : ComPtr(other.m_pointer) {}
    ComPtr(ComPtr&& other) noexcept : m_pointer(other.Detach()) {}
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(m_pointer, other.m_pointer);
        return *this;
    }
    ~ComPtr() { Reset(); }

    Interface* get() const { return m_pointer; }
    Interface* operator->() const { return m_pointer; }
    Interface& operator*() const { return *m_pointer; }
    explicit operator bool() const { return m_pointer != nullptr; }

    /// Takes over a reference that the caller already owns.
    void Attach(Interface* pointer) {
        Reset();
        m_pointer = pointer;
    }
    /// Gives the reference to the caller.
    [[nodiscard]] Interface* Detach() noexcept { return std::exchange(m_pointer, nullptr); }

    void Reset() {
        if (Interface* old = Detach()) {
            old->Release();
        }
    }

    /// Releases what is held and gives the address for a call that returns an interface.
    Interface** put() {
        Reset();
        return &m_pointer;
    }
    void** putVoid() { return reinterpret_cast<void**>(put()); }

  private:
    Interface* m_pointer = nullptr;
};

}  // namespace kvmpd
