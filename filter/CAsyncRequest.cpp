#include "filter/CAsyncRequest.h"

#include "filter/AddressSplit.h"

namespace kvmpd {

namespace {

class StreamLock {
  public:
    explicit StreamLock(CAsyncStream& stream) : m_stream(stream) { m_stream.Lock(); }
    ~StreamLock() { m_stream.Unlock(); }
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;

  private:
    CAsyncStream& m_stream;
};

}  // namespace

CAsyncRequest::CAsyncRequest(LONGLONG position, LONG length, BOOL aligned, BYTE* buffer, IMediaSample* sample,
                             DWORD_PTR user)
    : m_position(position), m_length(length), m_aligned(aligned), m_buffer(buffer), m_sample(sample), m_user(user) {}

HRESULT CAsyncRequest::Complete(CAsyncStream& stream) {
    const StreamLock lock(stream);
    const auto [audio, offset] = SplitPosition(m_position);
    m_result = audio ? stream.SetAudioPointer(offset) : stream.SetPointer(offset);
    if (FAILED(m_result)) {
        return m_result;
    }
    const auto wanted = static_cast<DWORD>(m_length);
    DWORD actual = 0;
    m_result = audio ? stream.ReadAudio(m_buffer, wanted, m_aligned, &actual)
                     : stream.Read(m_buffer, wanted, m_aligned, &actual);
    if (m_result == OLE_S_FIRST) {
        if (m_sample) {
            m_sample->SetDiscontinuity(TRUE);
        }
        m_result = S_OK;
    }
    if (SUCCEEDED(m_result) && actual != wanted) {
        m_length = static_cast<LONG>(actual);
    }
    return m_result;
}

}  // namespace kvmpd
