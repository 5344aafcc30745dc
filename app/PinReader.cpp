#include "app/PinReader.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "app/HostObject.h"
#include "app/Text.h"

namespace kvmpd::app {
namespace {

constexpr REFERENCE_TIME kTimePerByte = 10'000'000;
constexpr LONG kProbeBytes = 8;  // a box header

}  // namespace

// The sample that carries a probe: eight bytes and a range of positions. What a streaming sample would know besides is
// answered as unknown.
class ProbeSample final : public HostObject<IMediaSample, IID_IMediaSample> {
  public:
    void SetPosition(std::int64_t position) {
        m_start = position * kTimePerByte;
        m_stop = (position + kProbeBytes) * kTimePerByte;
    }

    HRESULT STDMETHODCALLTYPE GetPointer(BYTE** buffer) override {
        *buffer = m_bytes.data();
        return S_OK;
    }
    LONG STDMETHODCALLTYPE GetSize() override { return kProbeBytes; }
    HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* start, REFERENCE_TIME* stop) override {
        *start = m_start;
        *stop = m_stop;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetTime(REFERENCE_TIME* start, REFERENCE_TIME* stop) override {
        if (start != nullptr && stop != nullptr) {
            m_start = *start;
            m_stop = *stop;
        }
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE IsSyncPoint() override { return S_FALSE; }
    HRESULT STDMETHODCALLTYPE SetSyncPoint(BOOL) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE IsPreroll() override { return S_FALSE; }
    HRESULT STDMETHODCALLTYPE SetPreroll(BOOL) override { return S_OK; }
    LONG STDMETHODCALLTYPE GetActualDataLength() override { return m_length; }
    HRESULT STDMETHODCALLTYPE SetActualDataLength(LONG length) override {
        m_length = length;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetMediaType(AM_MEDIA_TYPE** type) override {
        *type = nullptr;
        return S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE SetMediaType(AM_MEDIA_TYPE*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE IsDiscontinuity() override { return S_FALSE; }
    HRESULT STDMETHODCALLTYPE SetDiscontinuity(BOOL) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetMediaTime(LONGLONG*, LONGLONG*) override { return VFW_E_MEDIA_TIME_NOT_SET; }
    HRESULT STDMETHODCALLTYPE SetMediaTime(LONGLONG*, LONGLONG*) override { return S_OK; }

  private:
    std::array<BYTE, kProbeBytes> m_bytes{};
    REFERENCE_TIME m_start = 0;
    REFERENCE_TIME m_stop = 0;
    LONG m_length = 0;
};

PinReader::PinReader(kvmpd::ComPtr<IAsyncReader> reader, std::function<bool()> interrupted)
    : m_reader(std::move(reader)), m_interrupted(std::move(interrupted)) {
    m_sample.Attach(new ProbeSample);
}

PinReader::~PinReader() = default;

ReadStatus PinReader::StatusOf(HRESULT result) {
    m_lastResult = result;
    if (result == S_OK) {
        return ReadStatus::kOk;
    }
    if (SUCCEEDED(result)) {
        return ReadStatus::kNotYet;  // S_FALSE
    }
    return result == E_ACCESSDENIED ? ReadStatus::kReleased : Failed();
}

// A read that fails because somebody ended it is no failure of the source.
ReadStatus PinReader::Failed() const {
    return m_interrupted() ? ReadStatus::kInterrupted : ReadStatus::kFailed;
}

void PinReader::Restarted() {
    {
        const std::lock_guard lock(m_mutex);
        if (!m_next) {
            return;
        }
        m_reader = std::move(m_next);
        m_next.Reset();
        m_id = m_nextId;
    }
    m_left.notify_all();
}

void PinReader::SetNext(kvmpd::ComPtr<IAsyncReader> reader, std::uint64_t id) {
    {
        const std::lock_guard lock(m_mutex);
        m_next = std::move(reader);
        m_nextId = id;
    }
    m_left.notify_all();  // the one that it replaces will not be read from
}

void PinReader::WaitUntilLeft(const IAsyncReader* reader) {
    std::unique_lock lock(m_mutex);
    m_left.wait(lock, [&] { return m_reader.get() != reader && m_next.get() != reader; });
}

void PinReader::Close() {
    {
        const std::lock_guard lock(m_mutex);
        m_reader.Reset();
        m_next.Reset();
    }
    m_left.notify_all();
}

ReadStatus PinReader::Read(std::int64_t position, std::span<std::uint8_t> bytes) {
    if (m_interrupted()) {
        return ReadStatus::kInterrupted;
    }
    if (!m_reader) {
        return ReadStatus::kNotYet;
    }
    const auto length = static_cast<LONG>(std::min<std::size_t>(bytes.size(), std::numeric_limits<LONG>::max()));
    return StatusOf(m_reader->SyncRead(position, length, bytes.data()));
}

ReadStatus PinReader::Probe(std::int64_t position) {
    if (m_interrupted()) {
        return ReadStatus::kInterrupted;
    }
    if (!m_reader) {
        return ReadStatus::kNotYet;
    }
    constexpr std::int64_t kLargestPosition = std::numeric_limits<REFERENCE_TIME>::max() / kTimePerByte - kProbeBytes;
    if (position < 0 || position > kLargestPosition) {
        m_lastResult = E_INVALIDARG;
        return ReadStatus::kFailed;
    }
    m_sample->SetPosition(position);
    return StatusOf(m_reader->SyncReadAligned(m_sample.get()));
}

std::string PinReader::Error() const {
    return ResultText(m_lastResult);
}

std::string ResultText(HRESULT result) {
    struct Known {
        HRESULT result;
        const char* words;
    };
    static constexpr std::array kKnown{
        Known{E_FAIL, "the component refused"},
        Known{E_ACCESSDENIED, "the bytes have left the cache"},
        Known{E_INVALIDARG, "no such position"},
        Known{E_NOINTERFACE, "an interface is missing"},
        Known{E_OUTOFMEMORY, "out of memory"},
        Known{CLASS_E_CLASSNOTAVAILABLE, "the module does not have the source filter"},
        Known{VFW_E_NO_TRANSPORT, "the pins found no way to pass data"},
        Known{VFW_E_NOT_FOUND, "there is no such pin"},
        Known{VFW_E_TIMEOUT, "timed out"},
    };
    const auto code = static_cast<unsigned>(result);
    for (const Known& known : kKnown) {
        if (known.result == result) {
            return Format("%s (0x%08X)", known.words, code);
        }
    }
    return Format("error 0x%08X", code);
}

}  // namespace kvmpd::app
