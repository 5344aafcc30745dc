#include "tests/soak/SoakReader.h"

#include <algorithm>
#include <cstring>

#include "stream/CAsyncStream.h"

namespace kvmpd::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// A source that should play and delivers nothing for so long hangs: the worst that the origin's stalls, three attempts
/// for each of two files, and the host's back-off explain is less.
constexpr seconds kPatience{30};
/// A read for a position of the stretch before keeps the component's buffers from holding the beginning of the new one
/// for the reader. One that ends within this time does no harm yet.
constexpr milliseconds kInTime{250};

}  // namespace

void Turns::Begin() {
    const std::lock_guard lock(m_mutex);
    m_changing = true;
    ++m_expectation.version;
}

void Turns::End(const std::function<void(Expectation&)>& change) {
    const std::lock_guard lock(m_mutex);
    const std::uint64_t before = m_expectation.restarts;
    change(m_expectation);
    if (m_expectation.restarts != before) {
        m_expectation.restartedAt = SoakClock::now();
    }
    m_changing = false;
    m_changed.notify_all();
}

Turns::Expectation Turns::Wait() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_changing; });
    return m_expectation;
}

bool Turns::Unchanged(const Expectation& since) const {
    const std::lock_guard lock(m_mutex);
    return !m_changing && m_expectation.version == since.version;
}

void Turns::Deliver(const Expectation& turn, std::int64_t number) {
    const std::lock_guard lock(m_mutex);
    m_delivered = number;
    m_deliveredIn = turn.restarts;
}

std::optional<std::int64_t> Turns::LastDelivered() const {
    const std::lock_guard lock(m_mutex);
    return m_deliveredIn == m_expectation.restarts ? std::optional(m_delivered) : std::nullopt;
}

SoakReader::SoakReader(Soak& soak, unsigned source, Turns& turns, ComPtr<IAsyncReader> reader, std::uint64_t seed,
                       Fail fail)
    : m_soak(soak),
      m_source(source),
      m_turns(turns),
      m_reader(std::move(reader)),
      m_random(seed),
      m_fail(std::move(fail)),
      m_laziness(static_cast<unsigned>(m_random() % 3)),
      m_thread([this] { Run(); }) {}

void SoakReader::Join() {
    m_thread.join();
}

void SoakReader::Run() {
    while (!m_ending && !m_soak.Failed()) {
        TakeTurn(m_turns.Wait());
    }
    m_reader.Reset();
}

void SoakReader::TakeTurn(const Turns::Expectation& turn) {
    if (turn.restarts != m_restarts) {
        m_place = {};
        m_restarts = turn.restarts;
        m_waitsForRestart = false;
        m_napped = SoakClock::now() - turn.restartedAt > kInTime;
        m_lastProgress = SoakClock::now();
        ++m_soak.Sums().stretches;
    }
    if (turn.stopped || m_waitsForRestart) {
        m_lastProgress = SoakClock::now();
        std::this_thread::sleep_for(milliseconds(10));
        return;
    }
    switch (ReadNext(turn)) {
        case Result::kDone:
            m_lastProgress = SoakClock::now();
            MaybeNap();
            break;
        case Result::kDenied:
            OnDenied(turn);
            break;
        case Result::kAgain:
            CheckPatience(turn);
            break;
        case Result::kFailed:
            m_ending = true;
    }
}

/// One segment of both streams. A file that was sent empty leaves no trace in its stream: the other one shows it.
SoakReader::Result SoakReader::ReadNext(const Turns::Expectation& turn) {
    Place& place = m_place;
    if (const Result result = ReadSegment(turn, true, place.video, place.nextVideo); result != Result::kDone) {
        return result;
    }
    if (const Result result = ReadSegment(turn, false, place.audio, place.nextAudio); result != Result::kDone) {
        return result;
    }
    const std::int64_t number = std::min(place.nextVideo->number, place.nextAudio->number);
    if (!CheckOrder(number, turn) || !Deliver(number, {turn.stream, turn.video, number}, place.nextVideo) ||
        !Deliver(number, {turn.stream, kAudioRepresentation, number}, place.nextAudio)) {
        return Result::kFailed;
    }
    m_turns.Deliver(turn, number);
    ++m_soak.Sums().segments;
    m_soak.NoteDelivered(m_source);
    return Result::kDone;
}

/// Takes segment `number` of one of the streams, of which `next` has been read.
bool SoakReader::Deliver(std::int64_t number, const BodyName& expected, std::optional<BodyName>& next) {
    if (next->number != number) {
        if (!m_soak.Origin().WasEmpty(expected)) {
            Failed(Describe(expected) + " is missing; " + Describe(*next) + " is in its place");
            return false;
        }
        return true;
    }
    m_soak.Sums().bytes += RecordCount(*next) * kRecordBytes;
    m_soak.Sums().errorPages += next->isPage ? 1 : 0;
    next.reset();
    return true;
}

SoakReader::Result SoakReader::ReadSegment(const Turns::Expectation& turn, bool isVideo, LONGLONG& position,
                                           std::optional<BodyName>& next) {
    if (next) {
        return Result::kDone;
    }
    const LONGLONG base = isVideo ? 0 : AUDIO_POSITION_BASE;
    std::string head(kRecordBytes, '\0');
    if (const Result result = ReadBytes(turn, base + position, head, false); result != Result::kDone) {
        return result;
    }
    const std::string where = std::string(isVideo ? "video" : "audio") + " byte " + std::to_string(position);
    const std::optional<Record> record = Recognise(head);
    if (!record) {
        return Failed(where + " holds bytes that were never sent");
    }
    const BodyName& name = record->name;
    if (record->index != 0) {
        return Failed(where + " should begin a segment and holds record " + std::to_string(record->index) + " of " +
                      Describe(name));
    }
    if (name.stream != turn.stream || name.representation != (isVideo ? turn.video : kAudioRepresentation)) {
        return Failed(where + " holds " + Describe(name) + " instead of stream " + std::to_string(turn.stream) +
                      ", representation " + std::to_string(isVideo ? turn.video : kAudioRepresentation));
    }
    const std::string body = Body(name);
    for (std::size_t at = kRecordBytes; at < body.size();) {
        const std::size_t most = body.size() - at;
        std::string piece(m_random() % 3 == 0 ? 1 + m_random() % most : most, '\0');
        if (const Result result = ReadBytes(turn, base + position + static_cast<LONGLONG>(at), piece, true);
            result != Result::kDone) {
            return result;
        }
        if (body.compare(at, piece.size(), piece) != 0) {
            const auto differs = std::ranges::mismatch(piece, body.substr(at)).in1 - piece.begin();
            return Failed(where + ", " + Describe(name) + " of " + std::to_string(body.size()) +
                          " bytes is wrong from its byte " + std::to_string(at + static_cast<std::size_t>(differs)));
        }
        at += piece.size();
    }
    position += static_cast<LONGLONG>(body.size());
    next = name;
    return Result::kDone;
}

SoakReader::Result SoakReader::ReadBytes(const Turns::Expectation& turn, LONGLONG position, std::string& bytes,
                                         bool mustBeThere) {
    const HRESULT result =
        m_reader->SyncRead(position, static_cast<LONG>(bytes.size()), reinterpret_cast<BYTE*>(bytes.data()));
    if (m_ending || !m_turns.Unchanged(turn)) {
        return Result::kAgain;
    }
    switch (result) {
        case S_OK:
            return Result::kDone;
        case E_ACCESSDENIED:
            return Result::kDenied;
        case S_FALSE:
            return mustBeThere
                       ? Failed("a part of a segment that was begun does not come: " + std::to_string(bytes.size()) +
                                " bytes at " + std::to_string(position))
                       : Result::kAgain;
        default:
            return Failed("a read of " + std::to_string(bytes.size()) + " bytes at " + std::to_string(position) +
                          " in a stream that plays answers " + std::to_string(result));
    }
}

/// Segments come in order, each once, and every number between two has a reason to be missing.
bool SoakReader::CheckOrder(std::int64_t present, const Turns::Expectation& turn) {
    const std::uint32_t stream = turn.stream;
    if (m_place.last && present <= *m_place.last) {
        Failed("segment " + std::to_string(present) + " of stream " + std::to_string(stream) + " comes after segment " +
               std::to_string(*m_place.last));
        return false;
    }
    Totals& sums = m_soak.Sums();
    for (std::int64_t number = m_place.last.value_or(present) + 1; number < present; ++number) {
        const auto reason = m_soak.Origin().WhyMissing(stream, turn.video, number);
        if (!reason) {
            Failed("segment " + std::to_string(number) + " of stream " + std::to_string(stream) +
                   " was sent completely and is missing between " + std::to_string(*m_place.last) + " and " +
                   std::to_string(present) + " (" + m_soak.Origin().History(stream, number) + ")");
            return false;
        }
        if (*reason == Missing::kFailed) {
            m_lostFailed.emplace(stream, number);
        }
        ++(*reason == Missing::kFailed  ? sums.lostFailed
           : *reason == Missing::kHole  ? sums.lostHole
           : *reason == Missing::kEmpty ? sums.empty
                                        : sums.neverOffered);
    }
    m_place.last = present;
    return true;
}

void SoakReader::OnDenied(const Turns::Expectation& turn) {
    if (!turn.mayBeBehind && !m_napped) {
        Failed("bytes left the cache before a reader that is not behind could read them, at video byte " +
               std::to_string(m_place.video));
        m_ending = true;
        return;
    }
    ++m_soak.Sums().fellBehind;
    m_waitsForRestart = true;
    m_lost = true;
}

SoakReader::Result SoakReader::Failed(const std::string& what) {
    m_fail(what);
    return Result::kFailed;
}

void SoakReader::CheckPatience(const Turns::Expectation& turn) {
    if (turn.paused) {
        m_lastProgress = SoakClock::now();
    } else if (const auto idle = SoakClock::now() - m_lastProgress; idle > kPatience * m_soak.Options().patience) {
        Failed("nothing was delivered for " + std::to_string(std::chrono::duration_cast<seconds>(idle).count()) +
               " s; waiting at video byte " + std::to_string(m_place.video) + " behind segment " +
               std::to_string(m_place.last.value_or(-1)));
        m_ending = true;
    }
}

/// Readers are of several kinds: one that is always there, one that takes a little time, one that sleeps at times.
void SoakReader::MaybeNap() {
    const std::uint64_t dice = m_random();
    if (m_laziness == 1) {
        std::this_thread::sleep_for(milliseconds(dice % 30));
    } else if (m_laziness == 2 && dice % 60 == 0) {
        m_napped = true;
        std::this_thread::sleep_for(milliseconds(500 + dice % 4000));
    }
}

}  // namespace kvmpd::test
