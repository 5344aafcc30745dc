// An observer of one request, who may cancel it.
#pragma once

#include <cstdint>

#include "platform/win32.h"

namespace kvmpd {

/// Called by the thread that runs the request.
class INetKernelProgress {
  public:
    /// `stage` is "connect" (0 of 0), "transmit" or "receive"; `done` and `total` are bytes, `total` is 0 when the
    /// response announced no length. A result other than 0 cancels the request.
    virtual BOOL OnProgress(const char* stage, std::uint64_t done, std::uint64_t total) = 0;

    /// Called once after a request that succeeded. `buffer` is the body of a request that was received into memory by
    /// the engine (allocated with new[]; it is the observer's from now on); for the others it is what the stream's
    /// UseResponseFile gave, or null. `length` is the body's size in memory, else the announced length.
    virtual void OnComplete(DWORD lastError, DWORD statusCode, BYTE* buffer, DWORD length) = 0;

  protected:
    ~INetKernelProgress() = default;
};

}  // namespace kvmpd
