#include "tests/faults/CellSources.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace kvmpd::test {
namespace {

using Clock = std::chrono::steady_clock;

app::RetryPolicy::Options PolicyFor(const FaultCase& fault) {
    app::RetryPolicy::Options options;
    options.longest = kLongestBackOff;
    options.giveUpBeforeMedia = std::nullopt;  // the cell's end is the host's patience
    if (fault.kind == FaultKind::kEndlessTrickle) {
        options.stallLimit = kStallLimit;
    }
    options.seed = static_cast<std::uint64_t>(fault.kind) * 100 + static_cast<std::uint64_t>(fault.target) * 10 +
                   static_cast<std::uint64_t>(fault.duration);
    return options;
}

}  // namespace

class CellSources::Source final : public app::SupervisedSource {
  public:
    Source(CellSources& sources, const std::filesystem::path& folder, std::shared_ptr<SourceRecord> record)
        : m_sources(sources),
          m_name(sources.m_name),
          m_record(std::move(record)),
          m_host(m_record->heard, folder, FaultOrigin::kDelay) {}
    ~Source() override {
        m_record->stopBegan = Clock::now();
        m_host.Stop(m_name);
        m_record->stopEnded = Clock::now();
        m_record->ended = true;
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    void AskForManifestAgain() override {
        ++m_sources.m_wakes;
        m_host.Wake();
    }
    void EndReads() override { m_host.EndReads(); }
    FaultHost& Host() { return m_host; }

  private:
    CellSources& m_sources;
    const std::string m_name;
    const std::shared_ptr<SourceRecord> m_record;
    FaultHost m_host;
};

CellSources::CellSources(FaultOrigin& origin, const FaultCase& fault, std::string name)
    : m_origin(origin),
      m_fault(fault),
      m_name(std::move(name)),
      m_supervisor(PolicyFor(fault),
                   {.make = [this](const app::SourceSupervisor::Request& request) { return Make(request.id); },
                    .retry = {},
                    .gaveUp = {}}) {}

void CellSources::Start() {
    if (!m_supervisor.Start()) {
        throw std::runtime_error("there is no first source");
    }
}

bool CellSources::Step(const Judgement& judgement) {
    const int before = Count();
    m_records.back()->before = judgement;
    m_supervisor.Step();
    return Count() != before;
}

size_t CellSources::Open() const {
    return static_cast<size_t>(std::ranges::count_if(m_records, [](const auto& record) { return !record->ended; }));
}

std::unique_ptr<app::SupervisedSource> CellSources::Make(std::uint64_t id) {
    const std::filesystem::path folder = m_origin.CacheFolder(Count() + 1);
    std::filesystem::create_directory(folder);
    const ThreadTally::Scope scope(m_threads);
    m_records.push_back(std::make_shared<SourceRecord>(m_supervisor, id));
    auto source = std::make_unique<Source>(*this, folder, m_records.back());
    m_host = &source->Host();
    if (m_fault.duration == Duration::kForEver) {
        m_host->KeepInCache(kCacheSeconds);
    }
    m_host->Load(m_origin.NextUrl());
    return source;
}

}  // namespace kvmpd::test
