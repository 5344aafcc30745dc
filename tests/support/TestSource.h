// What every test host has of a source: its interfaces, a callback that is not counted, and steps that must succeed.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>

#include "common/ComPtr.h"
#include "filter/KVMPDSrc.h"

namespace kvmpd::test {

/// Throws with the step's name when it failed.
inline void Require(HRESULT result, const char* step) {
    if (FAILED(result)) {
        throw std::runtime_error(std::string("the component refused: ") + step);
    }
}

/// A callback that outlives its source, so that there is nothing to count.
class OutlivingCallback : public IKVMPDCallback {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        const bool known = iid == IID_IUnknown || iid == IID_IKVMPDCallback;
        *object = known ? static_cast<IKVMPDCallback*>(this) : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

/// The interfaces of one source. One thread.
struct TestSource {
    /// Of a source that was made; its cache files go to `folder`.
    TestSource(ComPtr<IBaseFilter> made, const std::filesystem::path& folder) : filter(std::move(made)) {
        Require(filter->QueryInterface(IID_IKVMPDSource, control.putVoid()), "control interface");
        Require(filter->FindPin(L"Output", pin.put()), "output pin");
        Require(pin->QueryInterface(IID_IAsyncReader, reader.putVoid()), "reader");
        std::string text = folder.string();
        Require(control->Backdoor(kBackdoorCacheFolder, text.data()), "cache folder");
    }

    /// Releases everything; returns when the last thread of the source has ended.
    void Release() {
        reader.Reset();
        pin.Reset();
        control.Reset();
        filter.Reset();
    }

    ComPtr<IBaseFilter> filter;
    ComPtr<IKVMPDSource> control;
    ComPtr<IPin> pin;
    ComPtr<IAsyncReader> reader;
};

}  // namespace kvmpd::test
