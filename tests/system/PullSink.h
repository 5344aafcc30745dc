// The downstream end of a graph on the project's own base classes: a filter with one input pin that asks the upstream
// pin for IAsyncReader, as a splitter does, or refuses to ask.
#pragma once

#include "common/ComPtr.h"
#include "directshow/CBaseFilter.h"
#include "directshow/CBasePin.h"
#include "platform/com.h"

namespace kvmpd::test {

inline constexpr CLSID kPullSinkClass{0x3C7E51A2, 0x90D4, 0x4B6F, {0x8E, 0x21, 0x5F, 0xB3, 0x07, 0xC9, 0x4D, 0x16}};

class PullSinkPin final : public CBasePin {
  public:
    PullSinkPin(CBaseFilter* filter, CritSec* lock, bool asks)
        : CBasePin(filter, lock, L"Input", PINDIR_INPUT), m_asks(asks) {}

    HRESULT CheckMediaType(const CMediaType& type) override {
        return type.majortype == MEDIATYPE_Stream ? S_OK : S_FALSE;
    }

    const ComPtr<IAsyncReader>& Reader() const { return m_reader; }

  protected:
    HRESULT CheckConnect(IPin* pin) override {
        const HRESULT result = CBasePin::CheckConnect(pin);
        if (FAILED(result) || !m_asks) {
            return result;
        }
        return pin->QueryInterface(IID_IAsyncReader, m_reader.putVoid());
    }
    HRESULT BreakConnect() override {
        m_reader.Reset();
        return CBasePin::BreakConnect();
    }

  private:
    const bool m_asks;
    ComPtr<IAsyncReader> m_reader;  // used on the thread that connects and reads
};

class PullSink final : public CBaseFilter {
  public:
    explicit PullSink(bool asks = true) : CBaseFilter(nullptr, &m_lock, kPullSinkClass), m_pin(this, &m_lock, asks) {}

    int GetPinCount() override { return 1; }
    CBasePin* GetPin(int index) override { return index == 0 ? &m_pin : nullptr; }
    PullSinkPin& Input() { return m_pin; }

  private:
    CritSec m_lock;
    PullSinkPin m_pin;
};

}  // namespace kvmpd::test
