// The host's side of the component's callback: turns its calls into values for an EventSink.

#pragma once

#include "app/HostObject.h"
#include "app/StreamEvent.h"
#include "events/IKVMPDCallback.h"

namespace kvmpd::app {

// The sink must outlive the registration of this object with the component.
class HostCallback final : public HostObject<IKVMPDCallback, IID_IKVMPDCallback> {
  public:
    explicit HostCallback(EventSink& sink) : m_sink(sink) {}

    HRESULT STDMETHODCALLTYPE OnStreamEvent(DWORD id, void* param1, void* param2) override;
    HRESULT STDMETHODCALLTYPE OnBuffering(LONGLONG play, LONGLONG buffered, LONGLONG total) override;

  private:
    EventSink& m_sink;
};

// The event with this id and these parameters, as events/EventIds.h describes them.
StreamEvent MakeStreamEvent(DWORD id, const void* param1, const void* param2);

}  // namespace kvmpd::app
