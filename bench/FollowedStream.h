// The component following a stream the way a host does: created by class id, loaded, its pin read by position.
#pragma once

#include <stdexcept>
#include <string>

#include "common/ComPtr.h"
#include "common/Text.h"
#include "filter/IKVMPDSource.h"
#include "filter/KVMPDSrc.h"
#include "platform/com.h"

namespace kvmpd::bench {

class FollowedStream {
  public:
    FollowedStream(const std::string& url, const std::string& cacheFolder) {
        Check(KVMPDCreateInstance(CLSID_KVMPDFilter, nullptr, IID_IBaseFilter, m_filter.putVoid()));
        Check(m_filter->QueryInterface(IID_IKVMPDSource, m_control.putVoid()));
        ComPtr<IEnumPins> pins;
        Check(m_filter->EnumPins(pins.put()));
        ComPtr<IPin> pin;
        ULONG got = 0;
        Check(pins->Next(1, pin.put(), &got));
        Check(pin->QueryInterface(IID_IAsyncReader, m_reader.putVoid()));
        Check(m_control->Backdoor(kBackdoorCacheFolder, const_cast<char*>(cacheFolder.c_str())));
        Check(m_control->Load(Utf8ToWide(url).c_str()));
    }

    IAsyncReader& Reader() { return *m_reader; }

  private:
    static void Check(HRESULT result) {
        if (FAILED(result)) {
            throw std::runtime_error("the component refused a step");
        }
    }

    ComPtr<IBaseFilter> m_filter;
    ComPtr<IKVMPDSource> m_control;
    ComPtr<IAsyncReader> m_reader;
};

}  // namespace kvmpd::bench
