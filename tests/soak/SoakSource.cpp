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
constexpr std::uint32_t kStreamsPerSource = 65'000;
/// Of a last Release: two files of three attempts each, every one stalled at most two seconds, and some scheduling.
constexpr seconds kStopLimit{15};
constexpr seconds kEventLimit{10};

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
        session.host.Set(kBackdoorMaxCacheTime, static_cast<DWORD>(1 + Dice(10)));
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
        CountFiles(session);
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
    session.turns.Begin();
    const HRESULT result = session.host.Seek(target);
    session.turns.End([&](Turns::Expectation& expected) {
        expected.restarts += result == S_OK ? 1 : 0;
        expected.mayBeBehind = expected.mayBeBehind || result == S_OK;  // it need not have moved anything
    });
    Note("seek", "to " + std::to_string(target) + " of " + std::to_string(news.play) + ".." +
                     std::to_string(news.buffered) + ".." + std::to_string(news.total) +
                     (result == S_OK ? "" : ": refused"));
}

void SoakSource::SwitchQuality(Session& session) {
    const int video = kVideoRepresentations[Dice(kVideoRepresentations.size())];
    session.turns.Begin();
    const HRESULT result = session.host.Set(kBackdoorTargetQuality, static_cast<DWORD>(video));
    const bool same = std::exchange(session.video, result == S_OK ? video : session.video) == session.video;
    session.turns.End([&](Turns::Expectation& expected) {
        ++expected.restarts;
        expected.video = session.video;
        expected.mayBeBehind = session.paused || same;
    });
    Note("quality", std::to_string(video));
}

/// A pause, for some of which the cache is too small, and what a person does meanwhile.
void SoakSource::PauseAndRun(Session& session) {
    Note("pause");
    session.turns.Begin();
    session.host.Pause();
    session.paused = true;
    session.turns.End([](Turns::Expectation& expected) { expected.paused = expected.mayBeBehind = true; });
    if (Dice(2) == 0) {
        session.host.Set(kBackdoorMaxCacheTime, static_cast<DWORD>(1 + Dice(3)));
    }
    Idle(session, milliseconds(100 + Dice(4000)));
    if (Dice(4) == 0) {
        SeekSomewhere(session);
        Idle(session, milliseconds(Dice(1000)));
    }
    const std::uint64_t before = session.host.Heard().SoFar().leftParking;
    session.turns.Begin();
    session.host.Run();
    session.paused = false;
    if (!session.host.HearAll(kEventLimit * m_soak.Options().patience)) {
        Fail("an event that answers a call does not come");
    }
    const bool restarted = session.host.Heard().SoFar().leftParking > before;
    session.turns.End([&](Turns::Expectation& expected) {
        expected.paused = false;
        expected.restarts += restarted ? 1 : 0;
        expected.mayBeBehind = expected.mayBeBehind && !restarted;
    });
    Note("run", restarted ? "from a parked stream" : "");
}

/// Reads fail meanwhile; the positions stay.
void SoakSource::StopAndLoad(Session& session) {
    Note("stop");
    session.turns.Begin();
    session.host.Stop();
    session.turns.End([](Turns::Expectation& expected) { expected.stopped = true; });
    Idle(session, milliseconds(Dice(1500)));
    session.turns.Begin();
    session.host.Load(m_soak.Origin().Url(session.streams.back()));
    session.turns.End([](Turns::Expectation& expected) { expected.stopped = false; });
    Note("load again");
}

void SoakSource::LoadNewStream(Session& session, const std::string& why) {
    const std::uint32_t id = m_index * kStreamsPerSource + ++m_streams % kStreamsPerSource;
    m_soak.Origin().OpenStream(id);
    session.turns.Begin();
    session.host.Load(m_soak.Origin().Url(id));
    session.turns.End([&](Turns::Expectation& expected) {
        ++expected.restarts;
        expected.stream = id;
        expected.video = session.video;
        expected.mayBeBehind = session.paused;
    });
    session.streams.push_back(id);
    session.wakeAt.reset();
    session.wakeAsked = false;
    Note("load", "stream " + std::to_string(id) + ": " + why);
}

void SoakSource::ChangeSettings(Session& session) {
    if (Dice(2) == 0) {
        const auto time = static_cast<DWORD>(1 + Dice(15));
        session.host.Set(kBackdoorMaxCacheTime, time);
        Note("cache time", std::to_string(time) + " s");
    } else {
        const auto delay = static_cast<DWORD>(Dice(40));
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
        session.host.ChangeDelay(static_cast<DWORD>(1 + Dice(30)));
        Note("wake");
    }
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
    const std::size_t lost = session.reader->LostFailed();
    if (!abrupt && !m_soak.Failed()) {
        const auto heard = [lost](const SoakNews& news) { return news.segmentsLost >= lost; };
        if (!session.host.Heard().WaitFor(heard, kEventLimit * m_soak.Options().patience)) {
            Fail(std::to_string(lost) + " segments failed and " +
                 std::to_string(session.host.Heard().SoFar().segmentsLost) + " events say so");
        }
    }
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
        std::int64_t number = 0;
        std::from_chars(name.data(), name.data() + name.size(), number);
        const bool explained = std::ranges::any_of(
            session.streams, [&](std::uint32_t stream) { return m_soak.Origin().MayHaveLeft(stream, number); });
        if (!explained) {
            Fail("cache file " + name + " is left of a source that has ended");
        }
        ++m_soak.Sums().leftFiles;
    }
}

void SoakSource::CountFiles(const Session& session) {
    const std::filesystem::directory_iterator files(session.folder.Path());
    const auto count = static_cast<std::uint64_t>(std::distance(begin(files), end(files)));
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
