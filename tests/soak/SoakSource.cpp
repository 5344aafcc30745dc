#include "tests/soak/SoakSource.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <exception>
#include <filesystem>
#include <utility>

namespace kvmpd::test {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t kActionsKept = 40;
/// Of a last Release: two files of three attempts each, every one stalled at most two seconds, and some scheduling.
constexpr seconds kStopLimit{15};
constexpr seconds kEventLimit{10};
/// What a cache keeps unless it is told otherwise.
constexpr std::chrono::milliseconds kUsualCacheTime{300'000};
/// What may come and go while the files are counted, and what the component's threads may be late by.
constexpr seconds kLate{3};
/// Segments that are kept whatever was told, and some that are just coming.
constexpr int kSegmentsBeyondCache = 8;

/// What the name of a cache file says.
struct CacheFile {
    std::int64_t number = 0;
    bool isVideo = false;
};

CacheFile Read(const std::filesystem::path& path) {
    const std::string name = path.filename().string();
    CacheFile file{.isVideo = path.extension() == ".mp4"};
    std::from_chars(name.data(), name.data() + name.size(), file.number);
    return file;
}

}  // namespace

struct SoakSource::Session {
    Session(unsigned delay) : host(folder.Path(), delay) {}

    TempDir folder;
    Turns turns;
    SoakHost host;
    std::unique_ptr<SoakReader> reader;
    std::vector<std::uint32_t> streams;  // the last one is played
    int video = 720;                     // representation that plays
    bool paused = false;
    milliseconds longestCache = kUsualCacheTime;  // that was asked for so far
    std::uint64_t clears = 0;  // calls by which one segment that is just being fetched may be dropped without a word
    std::uint64_t failuresSeen = 0;
    std::uint64_t unchangedSeen = 0;
    std::uint64_t loadedBeforeWake = 0;
    bool wakeAsked = false;
    std::optional<SoakClock::time_point> wakeAt;
};

SoakSource::SoakSource(Soak& soak, unsigned index)
    : m_soak(soak), m_index(index), m_random(Mix(soak.Options().seed, index, 11)) {
    soak.AddSource(index);
}

void SoakSource::Start() {
    m_thread = std::thread([this] { Run(); });
}

void SoakSource::Run() {
    try {
        while (!m_soak.Over()) {
            RunSession();
        }
    } catch (const std::exception& error) {
        Fail(error.what());
    }
}

void SoakSource::RunSession() {
    Session session(static_cast<DWORD>(1 + Dice(20)));
    ++m_soak.Sums().sessions;
    Note("start");
    if (Dice(2) == 0) {
        const auto time = static_cast<DWORD>(1 + Dice(10));
        session.longestCache = seconds(time);
        session.host.Set(kBackdoorMaxCacheTime, time);
    }
    LoadNewStream(session, "new source");
    session.reader = std::make_unique<SoakReader>(m_soak, m_index, session.turns, session.host.Reader(), m_random(),
                                                  [this](const std::string& what) { Fail(what); });
    const bool calm = m_soak.Options().quiet || Dice(3) == 0;
    const auto end = SoakClock::now() + milliseconds(2000 + Dice(calm ? 120'000 : 40'000));
    while (!m_soak.Over() && SoakClock::now() < end) {
        Idle(session, milliseconds(calm ? 3000 + Dice(12'000) : 50 + Dice(2000)));
        if (!m_soak.Options().quiet && !m_soak.Over()) {
            Act(session);
        }
        CheckCache(session);
    }
    EndSession(session);
}

void SoakSource::Act(Session& session) {
    const std::uint64_t dice = Dice(100);
    if (dice < 40) {
        SeekSomewhere(session);
    } else if (dice < 55) {
        SwitchQuality(session);
    } else if (dice < 68) {
        PauseAndRun(session);
    } else if (dice < 77) {
        StopAndLoad(session);
    } else if (dice < 87) {
        LoadNewStream(session, "new URL");
    } else {
        ChangeSettings(session);
    }
}

/// Inside of what is cached, inside of what the manifest lists, or anywhere.
void SoakSource::SeekSomewhere(Session& session) {
    const SoakNews news = session.host.Heard().SoFar();
    const auto within = [this](LONGLONG from, LONGLONG to) {
        return from + static_cast<LONGLONG>(Dice(static_cast<std::uint64_t>(std::max<LONGLONG>(to - from, 0)) + 1));
    };
    const std::uint64_t dice = Dice(4);
    const LONGLONG target = dice == 0   ? within(std::max<LONGLONG>(news.play, 0), news.buffered)
                            : dice == 1 ? within(news.play, news.total)
                            : dice == 2 ? within(news.buffered - 2000, news.buffered)
                                        : within(news.play - 20'000, news.total + 20'000);
    BeginTurn(session);
    const HRESULT result = session.host.Seek(target);
    ++session.clears;
    EndTurn(session, [&](Turns::Expectation& expected) {
        expected.restarts += result == S_OK ? 1 : 0;
        expected.mayBeBehind = expected.mayBeBehind || result == S_OK;  // it need not have moved anything
    });
    Note("seek", "to " + std::to_string(target) + " of " + std::to_string(news.play) + ".." +
                     std::to_string(news.buffered) + ".." + std::to_string(news.total) +
                     (result == S_OK ? "" : ": refused"));
}

void SoakSource::SwitchQuality(Session& session) {
    const int video = kVideoRepresentations[Dice(kVideoRepresentations.size())];
    BeginTurn(session);
    const HRESULT result = session.host.Set(kBackdoorTargetQuality, static_cast<DWORD>(video));
    ++session.clears;
    const bool same = std::exchange(session.video, result == S_OK ? video : session.video) == session.video;
    EndTurn(session, [&](Turns::Expectation& expected) {
        ++expected.restarts;
        expected.video = session.video;
        expected.mayBeBehind = session.paused || same;
    });
    Note("quality", std::to_string(video));
}

/// A pause, for some of which the cache is too small, and what a person does meanwhile.
void SoakSource::PauseAndRun(Session& session) {
    Note("pause");
    BeginTurn(session);
    session.host.Pause();
    session.paused = true;
    EndTurn(session, [](Turns::Expectation& expected) { expected.paused = expected.mayBeBehind = true; });
    if (Dice(2) == 0) {
        session.host.Set(kBackdoorMaxCacheTime, static_cast<DWORD>(1 + Dice(3)));
    }
    Idle(session, milliseconds(100 + Dice(4000)));
    if (Dice(4) == 0) {
        SeekSomewhere(session);
        Idle(session, milliseconds(Dice(1000)));
    }
    const std::uint64_t before = session.host.Heard().SoFar().leftParking;
    BeginTurn(session);
    session.host.Run();
    session.paused = false;
    ++session.clears;
    if (!session.host.HearAll(kEventLimit * m_soak.Options().patience)) {
        Fail("an event that answers a call does not come");
    }
    const bool restarted = session.host.Heard().SoFar().leftParking > before;
    EndTurn(session, [&](Turns::Expectation& expected) {
        expected.paused = false;
        expected.restarts += restarted ? 1 : 0;
        expected.mayBeBehind = expected.mayBeBehind && !restarted;
    });
    Note("run", restarted ? "from a parked stream" : "");
}

/// Reads fail meanwhile; the positions stay.
void SoakSource::StopAndLoad(Session& session) {
    Note("stop");
    BeginTurn(session);
    session.host.Stop();
    EndTurn(session, [](Turns::Expectation& expected) { expected.stopped = true; });
    Idle(session, milliseconds(Dice(1500)));
    BeginTurn(session);
    session.host.Load(m_soak.Origin().Url(session.streams.back()));
    EndTurn(session, [](Turns::Expectation& expected) { expected.stopped = false; });
    Note("load again");
}

void SoakSource::LoadNewStream(Session& session, const std::string& why) {
    const std::uint32_t id = m_index * kStreamsPerSource + ++m_streams % kStreamsPerSource;
    m_soak.Origin().OpenStream(id);
    session.streams.push_back(id);
    BeginTurn(session);
    session.host.Load(m_soak.Origin().Url(id));
    EndTurn(session, [&](Turns::Expectation& expected) {
        ++expected.restarts;
        expected.stream = id;
        expected.video = session.video;
        expected.mayBeBehind = session.paused;
    });
    session.wakeAt.reset();
    session.wakeAsked = false;
    Note("load", "stream " + std::to_string(id) + ": " + why);
}

void SoakSource::ChangeSettings(Session& session) {
    if (Dice(2) == 0) {
        const auto time = static_cast<DWORD>(1 + Dice(15));
        session.longestCache = std::max<milliseconds>(session.longestCache, seconds(time));
        session.host.Set(kBackdoorMaxCacheTime, time);
        Note("cache time", std::to_string(time) + " s");
    } else {
        const auto delay = static_cast<DWORD>(Dice(40));
        m_soak.Origin().HostActs(session.streams.back(), /*mayRestart=*/false);
        session.host.ChangeDelay(delay);
        Note("delay", std::to_string(delay) + " segments");
    }
}

/// The host's part of surviving: a loader that gave up is woken, and where nothing wakes it another URL is loaded.
void SoakSource::SeeToFailures(Session& session) {
    const SoakNews news = session.host.Heard().SoFar();
    if (session.reader && session.reader->TakeLost()) {
        ++m_soak.Sums().replaced;
        LoadNewStream(session, "the reader is behind the cache");
    }
    if (news.failed > session.failuresSeen) {
        m_soak.Sums().failedManifests += news.failed - session.failuresSeen;
        session.failuresSeen = news.failed;
        session.wakeAt = SoakClock::now() + milliseconds(200 + Dice(800));
    }
    session.wakeAsked = session.wakeAsked && news.loaded == session.loadedBeforeWake;
    if (session.wakeAsked && news.delayUnchanged > session.unchangedSeen) {
        session.wakeAsked = false;
        ++m_soak.Sums().replaced;
        LoadNewStream(session, "nothing wakes the loader");
    }
    if (session.wakeAt && SoakClock::now() >= *session.wakeAt) {
        session.wakeAt.reset();
        session.wakeAsked = true;
        session.unchangedSeen = news.delayUnchanged;
        session.loadedBeforeWake = news.loaded;
        ++m_soak.Sums().wakes;
        m_soak.Origin().HostActs(session.streams.back(), /*mayRestart=*/false);
        session.host.ChangeDelay(static_cast<DWORD>(1 + Dice(30)));
        Note("wake");
    }
    CheckReports(session);
}

/// Every segment that failed is reported once, and nothing else is. What is about to be reported is counted already.
void SoakSource::CheckReports(const Session& session) {
    const std::uint64_t reported = session.host.Heard().SoFar().segmentsLost;
    const std::uint64_t most = Failures(session).most;
    if (reported > most) {
        Fail(std::to_string(reported) + " events say that a segment failed, and " + std::to_string(most) + " did");
    }
}

SoakSource::FailureRange SoakSource::Failures(const Session& session) const {
    FailureRange failures;
    for (const std::uint32_t stream : session.streams) {
        const StreamLedger::Losses losses = m_soak.Origin().LossesSoFar(stream);
        const std::uint64_t certain = session.clears == 0 ? losses.unnamedPassed : 0;
        failures.least += losses.fetched + certain;
        failures.most += losses.fetched + (session.clears == 0 ? certain + losses.unnamedAhead : losses.unnamedMost);
    }
    failures.least -= std::min(failures.least, session.clears);
    return failures;
}

/// The host is about to do something that the reader and the origin have to know of.
void SoakSource::BeginTurn(Session& session) {
    m_soak.Origin().HostActs(session.streams.back(), /*mayRestart=*/true);
    session.turns.Begin();
}

void SoakSource::EndTurn(Session& session, const std::function<void(Turns::Expectation&)>& change) {
    session.turns.End(change);
    m_soak.Origin().HostActed(session.streams.back());
}

void SoakSource::Idle(Session& session, milliseconds time) {
    const auto end = SoakClock::now() + time;
    do {
        SeeToFailures(session);
        std::this_thread::sleep_for(std::min(milliseconds(20), time));
    } while (SoakClock::now() < end && !m_soak.Over());
}

void SoakSource::EndSession(Session& session) {
    Note("end");
    const bool abrupt = Dice(2) == 0;  // whether events may be under way when it goes
    session.reader->End();
    session.turns.Begin();
    session.turns.End([](Turns::Expectation& expected) { expected.stopped = true; });
    session.host.Stop();
    session.reader->Join();
    if (!abrupt && !m_soak.Failed()) {
        const std::uint64_t lost = std::max<std::uint64_t>(session.reader->LostFailed(), Failures(session).least);
        const auto heard = [lost](const SoakNews& news) { return news.segmentsLost >= lost; };
        // A segment whose audio has failed may take its video as long as a stop may take.
        if (!session.host.Heard().WaitFor(heard, kStopLimit * m_soak.Options().patience)) {
            Fail(std::to_string(lost) + " segments failed and " +
                 std::to_string(session.host.Heard().SoFar().segmentsLost) + " events say so");
        }
    }
    CheckReports(session);
    const auto begin = SoakClock::now();
    session.host.Release();
    const auto took = duration_cast<milliseconds>(SoakClock::now() - begin);
    m_soak.NoteStop(took);
    if (took > kStopLimit * m_soak.Options().patience) {
        Fail("a stop took " + std::to_string(took.count()) + " ms");
    }
    CheckFolder(session);
    for (const std::uint32_t stream : session.streams) {
        m_soak.Origin().CloseStream(stream);
    }
}

/// Every cache file is gone, except what failed downloads had begun: that is nobody's.
void SoakSource::CheckFolder(Session& session) {
    for (const auto& entry : std::filesystem::directory_iterator(session.folder.Path())) {
        const std::string name = entry.path().filename().string();
        const CacheFile file = Read(entry.path());
        const bool explained = std::ranges::any_of(session.streams, [&](std::uint32_t stream) {
            return m_soak.Origin().MayHaveLeft(stream, file.number, file.isVideo);
        });
        if (!explained) {
            Fail("cache file " + name + " is left of a source that has ended");
        }
        ++m_soak.Sums().leftFiles;
    }
}

/// The cache holds as much as it was told to hold, or what its reader is behind.
void SoakSource::CheckCache(const Session& session) {
    std::uint64_t count = 0;
    milliseconds cached{0};
    milliseconds unread{0};
    const std::optional<std::int64_t> read = session.turns.LastDelivered();
    for (const auto& entry : std::filesystem::directory_iterator(session.folder.Path())) {
        ++count;
        const CacheFile file = Read(entry.path());
        for (const std::uint32_t stream : session.streams) {
            if (file.isVideo && SoakOrigin::IsNumberOf(stream, file.number) &&
                !m_soak.Origin().MayHaveLeft(stream, file.number, true)) {
                const milliseconds duration(m_soak.Origin().DurationMs(stream, file.number));
                cached += duration;
                unread += file.number > read ? duration : milliseconds(0);
            }
        }
    }
    const milliseconds bound = std::max(session.longestCache, unread) + kLate * m_soak.Options().patience +
                               kSegmentsBeyondCache * milliseconds(2 * m_soak.Options().segmentMs);
    if (cached > bound) {
        Fail(std::to_string(cached.count()) + " ms are cached, more than " + std::to_string(bound.count()));
    }
    std::atomic<std::uint64_t>& most = m_soak.Sums().mostCacheFiles;
    std::uint64_t known = most;
    while (known < count && !most.compare_exchange_weak(known, count)) {
    }
}

void SoakSource::Note(const std::string& kind, const std::string& details) {
    m_soak.NoteAction(kind);
    const auto at = duration_cast<milliseconds>(SoakClock::now() - m_begin).count();
    const std::lock_guard lock(m_actionsMutex);
    m_lastActions.push_back(std::to_string(at) + " ms: " + kind + (details.empty() ? "" : " " + details));
    if (m_lastActions.size() > kActionsKept) {
        m_lastActions.pop_front();
    }
}

void SoakSource::Fail(const std::string& what) {
    const auto at = duration_cast<milliseconds>(SoakClock::now() - m_begin).count();
    const std::lock_guard lock(m_actionsMutex);
    m_soak.Fail("source " + std::to_string(m_index) + " at " + std::to_string(at) + " ms: " + what, m_lastActions);
}

}  // namespace kvmpd::test
