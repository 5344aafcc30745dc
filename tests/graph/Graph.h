#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "common/ComPtr.h"
#include "tests/graph/LoadedModule.h"
#include "tests/system/LiveSession.h"

namespace kvmpd::test {

inline void CheckCom(HRESULT result, const char* step) {
    if (FAILED(result)) {
        throw std::runtime_error(std::string("the system refused: ") + step);
    }
}

/// COM on this thread while it lives.
class ComScope {
  public:
    ComScope() { CheckCom(CoInitializeEx(nullptr, COINIT_MULTITHREADED), "COM"); }
    ~ComScope() { CoUninitialize(); }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;
};

/// The system's filter graph manager with one source filter in it, connected with a sink by the graph's own call.
class Graph {
  public:
    explicit Graph(const LoadedModule& module) {
        CheckCom(
            CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder, m_builder.putVoid()),
            "filter graph manager");
        CheckCom(m_builder->QueryInterface(IID_IMediaControl, m_control.putVoid()), "media control");
        m_filter = module.NewFilter();
        CheckCom(m_filter ? S_OK : E_FAIL, "source filter");
        CheckCom(m_builder->AddFilter(m_filter.get(), L"Kavotra MPD Source"), "adding the source");
    }

    ~Graph() { Release(); }
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;

    IGraphBuilder& Builder() { return *m_builder.get(); }
    IBaseFilter& Filter() { return *m_filter.get(); }

    /// This graph's filter, connected with a sink by the graph's Connect; made at the first call.
    LiveSession& Session() {
        if (!m_session) {
            m_session = std::make_unique<LiveSession>(m_filter, [this](IPin& output, PullSink& sink) {
                const HRESULT added = m_builder->AddFilter(&sink, L"Sink");
                return FAILED(added) ? added : m_builder->Connect(&output, &sink.Input());
            });
        }
        return *m_session;
    }

    /// Each waits until the graph has arrived in the state.
    HRESULT Run() { return Arrive(m_control->Run(), State_Running); }
    HRESULT Pause() { return Arrive(m_control->Pause(), State_Paused); }
    HRESULT Stop() { return Arrive(m_control->Stop(), State_Stopped); }

    /// Releases everything; what the session has heard stays.
    void Release() {
        if (m_session) {
            m_session->Release();
        }
        m_filter.Reset();
        m_control.Reset();
        m_builder.Reset();
    }

  private:
    HRESULT Arrive(HRESULT result, FILTER_STATE wanted) {
        if (FAILED(result)) {
            return result;
        }
        OAFilterState state = -1;
        const HRESULT arrived = m_control->GetState(20'000, &state);
        return arrived == S_OK && state != wanted ? E_UNEXPECTED : arrived;
    }

    std::unique_ptr<LiveSession> m_session;  // first: its callback outlives the filter, which the graph holds, too
    ComPtr<IGraphBuilder> m_builder;
    ComPtr<IMediaControl> m_control;
    ComPtr<IBaseFilter> m_filter;
};

}  // namespace kvmpd::test
