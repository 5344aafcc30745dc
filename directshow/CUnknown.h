// The root of our COM objects: an atomic reference count, QueryInterface with one rule for its output, and aggregation.
//
// An object answers two IUnknowns. The delegating one, which every interface of the object carries, belongs to whoever
// owns the object's identity: the outer object of an aggregation, or the object itself. The non-delegating one is the
// object's own; only the creator of the object sees it. A class derives from CUnknown and its interfaces, puts
// KV_DECLARE_IUNKNOWN into its body, and overrides NonDelegatingQueryInterface to answer for its interfaces.

#pragma once

#include <atomic>

#include "directshow/CBaseObject.h"
#include "platform/com.h"

namespace kvmpd {

struct INonDelegatingUnknown {
    virtual HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) = 0;
    virtual ULONG NonDelegatingAddRef() = 0;
    virtual ULONG NonDelegatingRelease() = 0;

  protected:
    ~INonDelegatingUnknown() = default;
};

// Answers a QueryInterface with `unknown`, adding the caller's reference; E_POINTER without an output.
template <class Interface>
HRESULT GetInterface(Interface* unknown, void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    *ppv = unknown;
    unknown->AddRef();
    return S_OK;
}

// Answers a QueryInterface for an interface that there is not: the output is null.
inline HRESULT NoInterface(void** ppv) {
    if (ppv == nullptr) {
        return E_POINTER;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

class CUnknown : public CBaseObject, public INonDelegatingUnknown {
  public:
    // outer: the owner of this object's identity, not referenced (the outer object outlives its parts), or null.
    // The count starts at 0: the creator adds the first reference.
    explicit CUnknown(IUnknown* outer);
    virtual ~CUnknown() = default;

    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    ULONG NonDelegatingAddRef() override;
    ULONG NonDelegatingRelease() override;  // the last one deletes the object

    // The IUnknown that the object's interfaces delegate to.
    IUnknown* GetOwner() const { return m_owner; }
    // The object's own IUnknown, for its creator or its outer object.
    IUnknown* NonDelegatingUnknown() { return &m_inner; }

  private:
    // The non-delegating operations in the form of an IUnknown.
    class Inner final : public IUnknown {
      public:
        explicit Inner(CUnknown& object) : m_object(object) {}
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
            return m_object.NonDelegatingQueryInterface(riid, ppv);
        }
        ULONG STDMETHODCALLTYPE AddRef() override { return m_object.NonDelegatingAddRef(); }
        ULONG STDMETHODCALLTYPE Release() override { return m_object.NonDelegatingRelease(); }

      private:
        CUnknown& m_object;
    };

    Inner m_inner;
    IUnknown* const m_owner;
    std::atomic<ULONG> m_references{0};
};

}  // namespace kvmpd

// The IUnknown part of every interface that a class inherits: delegate to the owner of the identity.
#define KV_DECLARE_IUNKNOWN                                                      \
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override { \
        return GetOwner()->QueryInterface(riid, ppv);                            \
    }                                                                            \
    ULONG STDMETHODCALLTYPE AddRef() override {                                  \
        return GetOwner()->AddRef();                                             \
    }                                                                            \
    ULONG STDMETHODCALLTYPE Release() override {                                 \
        return GetOwner()->Release();                                            \
    }
