#pragma once

#include <functional>

#include <gtest/gtest.h>

#include "events/MPDEventHandler.h"
#include "tests/events/FakeCallback.h"

namespace kvmpd::test {

/// A dispatcher whose closing the test can watch and spoil.
class WatchedHandler final : public MPDEventHandler {
  public:
    ~WatchedHandler() override { m_closed = S_OK; }

    /// Called in each close when the stop event has been signalled already, so that the delivery thread delivers
    /// nothing more than the call it is in.
    void OnceStopping(std::function<void()> action) { m_onceStopping = std::move(action); }
    /// Closing fails with this result.
    void FailToClose(HRESULT result) { m_closed = result; }

    HRESULT CloseThread() override {
        if (m_closed != S_OK) {
            return m_closed;
        }
        if (m_onceStopping) {
            SetEvent(StopEvent());
            m_onceStopping();
        }
        return MPDEventHandler::CloseThread();
    }

  private:
    std::function<void()> m_onceStopping;
    HRESULT m_closed = S_OK;
};

}  // namespace kvmpd::test
