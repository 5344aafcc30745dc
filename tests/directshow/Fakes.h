// A filter and a pin on the base classes whose answers are the test's, and the downstream end of a connection.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/ComPtr.h"
#include "directshow/CBaseFilter.h"
#include "directshow/CBasePin.h"
#include "platform/com.h"

namespace kvmpd::test {

inline constexpr CLSID kFakeFilterClass{0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};
inline constexpr GUID kFakeSubtype{0xA0A0A0A0, 0x1111, 0x2222, {9, 8, 7, 6, 5, 4, 3, 2}};
inline constexpr GUID kFakeFormat{0xB0B0B0B0, 0x1111, 0x2222, {9, 8, 7, 6, 5, 4, 3, 2}};

class FakePin : public CBasePin {
  public:
    FakePin(CBaseFilter* filter, CritSec* lock, const wchar_t* name, PIN_DIRECTION direction)
        : CBasePin(filter, lock, name, direction) {}

    HRESULT GetMediaType(int position, CMediaType* type) override {
        if (position < 0 || static_cast<size_t>(position) >= types.size()) {
            return CBasePin::GetMediaType(position, type);
        }
        return type->Set(types[static_cast<size_t>(position)]);
    }
    HRESULT CheckMediaType(const CMediaType& type) override { return accept(type) ? S_OK : S_FALSE; }

    HRESULT Active() override { return Note("active", activeResult); }
    HRESULT Inactive() override { return Note("inactive", S_OK); }
    HRESULT Run(REFERENCE_TIME start) override { return Note("run " + std::to_string(start), S_OK); }

    std::vector<CMediaType> types;
    std::function<bool(const CMediaType&)> accept = [](const CMediaType&) { return true; };
    std::function<HRESULT(IPin*)> check = [](IPin*) { return S_OK; };
    std::function<HRESULT(IPin*)> complete = [](IPin*) { return S_OK; };
    HRESULT activeResult = S_OK;
    HRESULT breakResult = S_OK;
    std::vector<std::string> notes;

  protected:
    HRESULT CheckConnect(IPin* pin) override {
        const HRESULT hr = CBasePin::CheckConnect(pin);
        return FAILED(hr) ? hr : check(pin);
    }
    HRESULT CompleteConnect(IPin* pin) override { return complete(pin); }
    HRESULT BreakConnect() override { return Note("break", breakResult); }

  private:
    HRESULT Note(std::string note, HRESULT result) {
        notes.push_back(std::move(note));
        return result;
    }
};

class FakeFilter : public CBaseFilter {
  public:
    FakeFilter() : CBaseFilter(nullptr, &lock, kFakeFilterClass) {}

    int GetPinCount() override { return static_cast<int>(pins.size()); }
    CBasePin* GetPin(int index) override {
        return index >= 0 && index < GetPinCount() ? pins[static_cast<size_t>(index)].get() : nullptr;
    }
    FakePin* Add(const wchar_t* name, PIN_DIRECTION direction) {
        pins.push_back(std::make_unique<FakePin>(this, &lock, name, direction));
        IncrementPinVersion();
        return pins.back().get();
    }

    CritSec lock;
    std::vector<std::unique_ptr<FakePin>> pins;
};

// A filter that the test holds one reference on.
inline ComPtr<FakeFilter> MakeFilter() {
    return ComPtr<FakeFilter>(new FakeFilter);
}

inline CMediaType MakeType(const GUID& major, const GUID& subtype = GUID_NULL, const GUID& format = GUID_NULL) {
    CMediaType type;
    type.majortype = major;
    type.subtype = subtype;
    type.formattype = format;
    return type;
}

}  // namespace kvmpd::test
