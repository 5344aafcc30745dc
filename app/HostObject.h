// Reference counting and QueryInterface for the host's own COM objects, each of which has one interface. Created with
// one reference, which belongs to whoever called new.

#pragma once

#include <atomic>

#include "platform/com.h"

namespace kvmpd::app {

template <class Interface, const IID& kInterfaceId>
class HostObject : public Interface {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, kInterfaceId)) {
            AddRef();
            *object = static_cast<Interface*>(this);
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

    HostObject(const HostObject&) = delete;
    HostObject& operator=(const HostObject&) = delete;

  protected:
    HostObject() = default;
    virtual ~HostObject() = default;

  private:
    std::atomic<ULONG> m_references = 1;
};

}  // namespace kvmpd::app
