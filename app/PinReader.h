// A byte source over the output pin's IAsyncReader, and over that of the source which takes its place. One thread
// reads; the stop predicate is asked on that thread. SetNext and WaitUntilLeft may be called from any thread.

#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "app/ByteSource.h"
#include "common/ComPtr.h"
#include "platform/com.h"

namespace kvmpd::app {

class ProbeSample;

class PinReader final : public ByteSource {
  public:
    // reader: may be null, as long as nothing is to be read. interrupted: asked before every read; true makes reads
    // answer kInterrupted, also those that failed meanwhile.
    PinReader(kvmpd::ComPtr<IAsyncReader> reader, std::function<bool()> interrupted);
    ~PinReader() override;

    // Waits in SyncRead, up to ten seconds, for bytes that are not there; nothing can call it back from there, which is
    // why readers ask Probe first.
    ReadStatus Read(std::int64_t position, std::span<std::uint8_t> bytes) override;

    // Asks with an aligned read, which answers at once. Its position travels as a sample time, ten million times the
    // byte position in 64 bits: the pin's audio positions do not fit, so only video can be asked for.
    ReadStatus Probe(std::int64_t position) override;

    // Takes up the reader given last, if any: positions have restarted.
    void Restarted() override;

    // What is to be read from after the next restart. id: the source's, for SourceId.
    void SetNext(kvmpd::ComPtr<IAsyncReader> reader, std::uint64_t id = 0);
    // Of the source that is read, which another one may have replaced already. The reading thread only.
    std::uint64_t SourceId() const { return m_id; }
    // Until the reading thread has let go of this reader for good. Whoever closes a source waits here first: the last
    // reference to it must not be dropped by the reading thread, which would then wait for the source's transfers.
    void WaitUntilLeft(const IAsyncReader* reader);
    // Lets go of every reader. Once the reading thread is gone.
    void Close();

    // The last error, for a person.
    std::string Error() const;

  private:
    ReadStatus StatusOf(HRESULT result);
    ReadStatus Failed() const;

    mutable std::mutex m_mutex;
    std::condition_variable m_left;
    kvmpd::ComPtr<IAsyncReader> m_reader;  // replaced with m_mutex held, by the reading thread
    kvmpd::ComPtr<IAsyncReader> m_next;    // guarded by m_mutex
    std::uint64_t m_nextId = 0;            // guarded by m_mutex
    std::uint64_t m_id = 0;                // the reading thread only
    kvmpd::ComPtr<ProbeSample> m_sample;
    const std::function<bool()> m_interrupted;
    HRESULT m_lastResult = S_OK;
};

// "access denied (0x80070005)" and the like.
std::string ResultText(HRESULT result);

}  // namespace kvmpd::app
