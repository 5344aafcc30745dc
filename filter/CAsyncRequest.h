// One read: where from, where to, and how it went.

#pragma once

#include "common/ComPtr.h"
#include "platform/com.h"
#include "stream/CAsyncStream.h"

namespace kvmpd {

// Completed once, by one thread; read by whoever owns it then. While it exists it keeps its sample alive.
class CAsyncRequest {
  public:
    // length: bytes, not negative. buffer: room for them. sample: may be null. user: the requester's own number.
    CAsyncRequest(LONGLONG position, LONG length, BOOL aligned, BYTE* buffer, IMediaSample* sample, DWORD_PTR user);

    // Positions the stream and reads, under the stream's lock, and returns the result. A short read keeps the result
    // that the stream gave: only the stream knows whether the rest is still to come.
    HRESULT Complete(CAsyncStream& stream);

    HRESULT Result() const { return m_result; }  // VFW_E_TIMEOUT until completed
    LONGLONG Position() const { return m_position; }
    LONG ActualLength() const { return m_length; }  // bytes asked for, once completed bytes read
    IMediaSample* Sample() const { return m_sample.get(); }
    DWORD_PTR User() const { return m_user; }

  private:
    const LONGLONG m_position;
    LONG m_length;
    const BOOL m_aligned;
    BYTE* const m_buffer;
    const ComPtr<IMediaSample> m_sample;
    const DWORD_PTR m_user;
    HRESULT m_result = VFW_E_TIMEOUT;
};

}  // namespace kvmpd
