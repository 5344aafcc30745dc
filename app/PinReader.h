// A byte source over the output pin's IAsyncReader. One thread reads; the stop predicate is asked on that thread.

#pragma once

#include <functional>
#include <string>

#include "app/ByteSource.h"
#include "common/ComPtr.h"
#include "platform/com.h"

namespace kvmpd::app {

class ProbeSample;

class PinReader final : public ByteSource {
  public:
    // interrupted: asked before every read; true makes reads answer kInterrupted.
    PinReader(kvmpd::ComPtr<IAsyncReader> reader, std::function<bool()> interrupted);
    ~PinReader() override;

    // Waits in SyncRead, up to ten seconds, for bytes that are not there; nothing can call it back from there, which is
    // why readers ask Probe first.
    ReadStatus Read(std::int64_t position, std::span<std::uint8_t> bytes) override;

    // Asks with an aligned read, which answers at once. Its position travels as a sample time, ten million times the
    // byte position in 64 bits: the pin's audio positions do not fit, so only video can be asked for.
    ReadStatus Probe(std::int64_t position) override;

    // The last error, for a person.
    std::string Error() const;

  private:
    ReadStatus StatusOf(HRESULT result);

    kvmpd::ComPtr<IAsyncReader> m_reader;
    kvmpd::ComPtr<ProbeSample> m_sample;
    const std::function<bool()> m_interrupted;
    HRESULT m_lastResult = S_OK;
};

// "access denied (0x80070005)" and the like.
std::string ResultText(HRESULT result);

}  // namespace kvmpd::app
