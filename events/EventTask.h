// The notifications that wait for the host: each makes one call on the callback.
#pragma once

#include <string>
#include <utility>

#include "events/IKVMPDCallback.h"

namespace kvmpd {

class EventTask {
  public:
    virtual ~EventTask() = default;
    /// Makes the call. What the host returns is not looked at.
    virtual void Run(IKVMPDCallback& callback) = 0;
};

class BufferedEventTask final : public EventTask {
  public:
    BufferedEventTask(LONGLONG play, LONGLONG buffered, LONGLONG total)
        : m_play(play), m_buffered(buffered), m_total(total) {}
    void Run(IKVMPDCallback& callback) override { callback.OnBuffering(m_play, m_buffered, m_total); }

  private:
    LONGLONG m_play;
    LONGLONG m_buffered;
    LONGLONG m_total;
};

class DwordStreamEventTask final : public EventTask {
  public:
    DwordStreamEventTask(DWORD id, LONG param1, LONG param2) : m_id(id), m_param1(param1), m_param2(param2) {}
    void Run(IKVMPDCallback& callback) override { callback.OnStreamEvent(m_id, &m_param1, &m_param2); }

  private:
    DWORD m_id;
    LONG m_param1;
    LONG m_param2;
};

class StreamStringEventTask final : public EventTask {
  public:
    StreamStringEventTask(DWORD id, std::wstring text) : m_id(id), m_text(std::move(text)) {}
    void Run(IKVMPDCallback& callback) override { callback.OnStreamEvent(m_id, m_text.data(), nullptr); }

  private:
    DWORD m_id;
    std::wstring m_text;
};

}  // namespace kvmpd
