// Neutral answers to every question of the request engine: no upload, no headers of its own, none wanted, the body in
// blocks. What to do with the blocks is left to each sink.
#pragma once

#include "net/INetKernelContentStream.h"

namespace kvmpd {

class NetKernelContentStreamBase : public INetKernelContentStream {
  public:
    BOOL HasUploadContent() override;
    DWORD GetUploadLength() override;
    HRESULT ReadOutputStream(DWORD offset, const BYTE** data, DWORD* size) override;
    BOOL HasCustomHeaders() override;
    std::string GetRequestHeaders(std::string host, std::string path) override;
    std::wstring GetRequestHeadersW(std::wstring host, std::wstring path) override;
    BOOL WantsHeaders() override;
    BOOL OnContentLength(std::uint64_t length) override;
    BOOL OnContentType(const char* type) override;
    BOOL OnETag(const char* etag) override;
    std::vector<std::string> GetQueryHeaders() override;
    BOOL OnQueryHeader(std::string name, const char* value) override;
    BOOL UseStreamWrite() override;
    BOOL UseStreamBuffer() override;
    BOOL GetWriteBuffer(BYTE** area, DWORD offset, DWORD* size) override;
    BOOL UseResponseFile(std::uint64_t* length, const wchar_t* responsePath, BYTE** buffer) override;
    std::wstring GetResponseFile() override;

  protected:
    ~NetKernelContentStreamBase() = default;
};

}  // namespace kvmpd
