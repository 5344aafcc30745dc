// The object through which a caller shapes a request and receives its response: the request engine asks it for upload
// data and extra headers and hands it the announced length, the headers of interest and the body.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/win32.h"

namespace kvmpd {

/// Every operation is called by the thread that runs the request, inside INetKernelBase::OpenUrl. Flags answer 0 for no
/// and anything else for yes. The order of the operations is part of the interface.
class INetKernelContentStream {
  public:
    // Upload: the engine first asks whether there is a body to send, then for its length, then for one block after the
    // other until that length is reached.

    virtual BOOL HasUploadContent() = 0;
    /// Total length of the body to send, in bytes; not 0.
    virtual DWORD GetUploadLength() = 0;
    /// The block at `offset`. `size` comes with the most bytes wanted and leaves with the bytes at `data`, which stay
    /// valid until the next call. A negative result ends the request.
    virtual HRESULT ReadOutputStream(DWORD offset, const BYTE** data, DWORD* size) = 0;

    // Request headers, asked for when the caller of OpenUrl gave none.

    virtual BOOL HasCustomHeaders() = 0;
    /// The header lines of a request to `host` for `path`, each ended by "\r\n".
    virtual std::string GetRequestHeaders(std::string host, std::string path) = 0;
    virtual std::wstring GetRequestHeadersW(std::wstring host, std::wstring path) = 0;

    // Response headers. The results are not judged.

    /// Whether the headers of GetQueryHeaders are wanted.
    virtual BOOL WantsHeaders() = 0;
    /// The announced length of the body in bytes, 0 when there is none. Called once for every response.
    virtual BOOL OnContentLength(std::uint64_t length) = 0;
    /// The content type, "" when there is none. Called once for every response.
    virtual BOOL OnContentType(const char* type) = 0;
    /// The entity tag, if the response has one.
    virtual BOOL OnETag(const char* etag) = 0;
    virtual std::vector<std::string> GetQueryHeaders() = 0;
    /// One header of GetQueryHeaders that the response has.
    virtual BOOL OnQueryHeader(std::string name, const char* value) = 0;

    // Response body: one of three ways, asked for in the order file, areas of the stream, blocks.

    /// Whether the body is delivered in blocks, by WriteInputStream.
    virtual BOOL UseStreamWrite() = 0;
    /// One block of the body; 0 ends the request as failed, without OnWriteComplete.
    virtual BOOL WriteInputStream(const BYTE* data, DWORD size) = 0;
    /// The body has ended, complete or not. The result is not judged.
    virtual BOOL OnWriteComplete() = 0;
    /// Whether the body is read straight into areas that the stream provides.
    virtual BOOL UseStreamBuffer() = 0;
    /// The area for the bytes from `offset` on and its size; a size of 0 ends the reading, a result of 0 fails it.
    virtual BOOL GetWriteBuffer(BYTE** area, DWORD offset, DWORD* size) = 0;
    /// Whether the body goes to the file GetResponseFile. `length` is the announced length, which the stream may
    /// change; `responsePath` is the caller's. What the stream puts into `*buffer` (null so far) goes to the observer's
    /// OnComplete, unless the body is received into memory; a request that fails leaves it to the stream.
    virtual BOOL UseResponseFile(std::uint64_t* length, const wchar_t* responsePath, BYTE** buffer) = 0;
    virtual std::wstring GetResponseFile() = 0;

  protected:
    // Streams live on their caller's stack; nobody deletes one through this interface.
    ~INetKernelContentStream() = default;
};

}  // namespace kvmpd
