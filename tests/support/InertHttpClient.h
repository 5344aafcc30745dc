#pragma once

#include "net/INetKernelBase.h"

namespace kvmpd::test {

/// An HTTP client that fetches nothing: what the stand-ins for the real one have in common. A derived class overrides
/// the request that its test is about.
class InertHttpClient : public INetKernelBase {
  public:
    HRESULT OpenUrl(const char*, const char*, const wchar_t*, BOOL, const char*, const wchar_t*, const BYTE*, DWORD,
                    INetKernelContentStream*) override {
        return E_NOTIMPL;
    }
    HRESULT OpenUrlW(const wchar_t*, const wchar_t*, const wchar_t*, BOOL, const wchar_t*, const wchar_t*, const BYTE*,
                     DWORD, INetKernelContentStream*) override {
        return E_NOTIMPL;
    }
    void SetReceiveChunkSize(DWORD) override {}
    void Close() override {}
    DWORD Reset() override { return 0; }
    DWORD GetErrorType() override { return 0; }
    void SetReceiveTimeout(DWORD) override {}
    void SetSendTimeout(DWORD) override {}
    DWORD Reserved8() override { return 0; }
    DWORD Reserved9() override { return 0; }
};

}  // namespace kvmpd::test
