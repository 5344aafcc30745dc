#include "net/NetKernelContentStreamBase.h"

namespace kvmpd {

BOOL NetKernelContentStreamBase::HasUploadContent() {
    return 0;
}

DWORD NetKernelContentStreamBase::GetUploadLength() {
    return 0;
}

HRESULT NetKernelContentStreamBase::ReadOutputStream(DWORD /*offset*/, const BYTE** /*data*/, DWORD* /*size*/) {
    return E_FAIL;
}

BOOL NetKernelContentStreamBase::HasCustomHeaders() {
    return 0;
}

std::string NetKernelContentStreamBase::GetRequestHeaders(std::string /*host*/, std::string /*path*/) {
    return {};
}

std::wstring NetKernelContentStreamBase::GetRequestHeadersW(std::wstring /*host*/, std::wstring /*path*/) {
    return {};
}

BOOL NetKernelContentStreamBase::WantsHeaders() {
    return 0;
}

BOOL NetKernelContentStreamBase::OnContentLength(std::uint64_t /*length*/) {
    return 0;
}

BOOL NetKernelContentStreamBase::OnContentType(const char* /*type*/) {
    return 0;
}

BOOL NetKernelContentStreamBase::OnETag(const char* /*etag*/) {
    return 0;
}

std::vector<std::string> NetKernelContentStreamBase::GetQueryHeaders() {
    return {};
}

BOOL NetKernelContentStreamBase::OnQueryHeader(std::string /*name*/, const char* /*value*/) {
    return 0;
}

BOOL NetKernelContentStreamBase::UseStreamWrite() {
    return 1;
}

BOOL NetKernelContentStreamBase::UseStreamBuffer() {
    return 0;
}

BOOL NetKernelContentStreamBase::GetWriteBuffer(BYTE** /*area*/, DWORD /*offset*/, DWORD* /*size*/) {
    return 0;
}

BOOL NetKernelContentStreamBase::UseResponseFile(std::uint64_t* /*length*/, const wchar_t* /*responsePath*/,
                                                 BYTE** /*buffer*/) {
    return 0;
}

std::wstring NetKernelContentStreamBase::GetResponseFile() {
    return {};
}

}  // namespace kvmpd
