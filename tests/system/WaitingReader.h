#pragma once

#include <chrono>
#include <future>
#include <thread>

#include "tests/system/LiveSession.h"

namespace kvmpd::test {

/// A reader on a thread of its own that asks for one byte which the stream does not have yet.
class WaitingReader {
  public:
    explicit WaitingReader(LiveSession& session) : m_reader(&session.Reader()) {
        std::promise<void> begun;
        m_result = std::async(std::launch::async, [this, &begun] {
            BYTE byte = 0;
            begun.set_value();
            const HRESULT result = m_reader->SyncRead(kBeyondTheEnd, 1, &byte);
            m_reader.Reset();
            return result;
        });
        begun.get_future().wait();
        // From outside, a read that waits looks like one that has not begun; after two retry pauses it has.
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    bool IsWaiting() const { return m_result.wait_for(std::chrono::seconds(0)) == std::future_status::timeout; }
    HRESULT Result() { return m_result.get(); }

  private:
    static constexpr LONGLONG kBeyondTheEnd = 1'000'000'000;

    ComPtr<IAsyncReader> m_reader;  // a reference of its own, as a reader must have; the reading thread releases it
    std::future<HRESULT> m_result;
};

}  // namespace kvmpd::test
