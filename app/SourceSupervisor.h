// Keeps a host supplied with a live source that works: wakes one whose manifest failed, replaces one that cannot be
// woken, and gives up when RetryPolicy says so. It knows sources only by the small interface below, so any host may
// copy it with RetryPolicy.h; standard library only.
//
// Threads: what happened (ManifestLoaded ... SourceFailed) is told from any thread, also from inside a source's own
// callback. Start, Step and the destructor belong to one thread, on which all callbacks are called. A source that was
// replaced is closed on a thread of its own, because closing waits for its transfer in progress. That may last for
// hours: a transfer that trickles never meets a time-out.

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "app/RetryPolicy.h"

namespace kvmpd::app {

// One source of the host's making. Its destructor closes it and may last as long as a transfer.
class SupervisedSource {
  public:
    virtual ~SupervisedSource() = default;
    // Wakes the manifest loader: sets a preferred delay other than the one last set (kBackdoorPreferDelaySegments).
    virtual void AskForManifestAgain() = 0;
    // Ends reads that wait (kBackdoorStop). Nothing is read from it afterwards.
    virtual void EndReads() = 0;
};

class SourceSupervisor {
  public:
    using Time = RetryPolicy::Time;

    struct Request {
        std::uint64_t id = 0;  // of the source to be made; what it reports is told with this id
        // How long no media has come; none: there never was any. A replacement that starts so far behind the live edge
        // misses nothing that the manifest still lists.
        std::optional<RetryPolicy::Length> sinceMedia;
    };

    struct Callbacks {
        // Makes a source and lets it begin; null when that failed. The source before it still exists meanwhile.
        std::function<std::unique_ptr<SupervisedSource>(const Request&)> make;
        // Something was decided, for the host to tell about. May be empty.
        std::function<void(const RetryPolicy::Retry&)> retry;
        // No more tries. Called once. May be empty.
        std::function<void()> gaveUp;
    };

    // clock: asked for the time wherever it matters; steady_clock unless a test has its own.
    SourceSupervisor(const RetryPolicy::Options& options, Callbacks callbacks, std::function<Time()> clock = {})
        : m_callbacks(std::move(callbacks)),
          m_clock(clock ? std::move(clock) : [] { return std::chrono::steady_clock::now(); }),
          m_spacing(options.longest),
          m_policy(options, m_clock()) {}

    ~SourceSupervisor() { Close(); }
    SourceSupervisor(const SourceSupervisor&) = delete;
    SourceSupervisor& operator=(const SourceSupervisor&) = delete;

    // Makes the first source. False when that failed; there is no second try then.
    bool Start() {
        Request request;
        {
            const std::lock_guard lock(m_mutex);
            request = NewRequest();
        }
        m_current = m_callbacks.make(request);
        m_lastMade = m_clock();
        return m_current != nullptr;
    }

    // ---- any thread; a source that was replaced is not listened to ----

    // Event 0 with 0, and its second number.
    void ManifestLoaded(std::uint64_t id, RetryPolicy::Length segment) {
        Note(id, [&](Time now) {
            m_policy.ManifestLoaded(now, segment);
            return std::nullopt;
        });
    }
    // Event 0 with anything else.
    void ManifestFailed(std::uint64_t id) {
        Note(id, [&](Time now) { return m_policy.ManifestFailed(now); });
    }
    // Event 8 as (0, 0).
    void DelayUnchanged(std::uint64_t id) {
        Note(id, [&](Time now) { return m_policy.WakeRefused(now); });
    }
    // A read failed although nobody ended it.
    void SourceFailed(std::uint64_t id) {
        Note(id, [&](Time now) { return m_policy.SourceFailed(now); });
    }
    // Media that the host had not had before. Of whatever source it is: it is there.
    void MediaArrived() {
        const std::lock_guard lock(m_mutex);
        m_policy.MediaArrived(m_clock());
    }
    // The host has not been taking media, so that no time without any is counted up to now: its output is slow, or it
    // has paused the stream. To be told again and again while that lasts.
    void HostBusy() {
        const std::lock_guard lock(m_mutex);
        m_policy.HostWasBusy(m_clock());
    }
    // Of the source that is listened to.
    std::uint64_t CurrentId() const {
        const std::lock_guard lock(m_mutex);
        return m_currentId;
    }

    // ---- the owner's thread ----

    // Does what is due. To be called when UntilStep has passed and after something was told.
    void Step() {
        ReapClosed();
        std::vector<RetryPolicy::Retry> planned;
        RetryPolicy::Decision decision;
        std::optional<Request> request;
        {
            const std::lock_guard lock(m_mutex);
            planned.swap(m_planned);
            const Time now = m_clock();
            decision = m_policy.Next(now);
            if (decision.action == RetryPolicy::Action::kReplace) {
                if (MayReplace(now)) {
                    request = NewRequest();  // from here on nothing is charged to it that the one before reports
                } else {
                    planned.push_back(m_policy.ReplaceHeldUp(now, decision.trouble, UntilMore(now)));
                }
            }
        }
        for (const RetryPolicy::Retry& retry : planned) {
            Tell(retry);
        }
        switch (decision.action) {
            case RetryPolicy::Action::kNothing:
                break;
            case RetryPolicy::Action::kWake:
                m_current->AskForManifestAgain();
                break;
            case RetryPolicy::Action::kReplace:
                if (request && decision.trouble == RetryPolicy::Trouble::kStalled) {
                    Tell({decision.trouble, decision.action});
                }
                if (request) {
                    Replace(*request);
                }
                break;
            case RetryPolicy::Action::kGiveUp:
                if (!std::exchange(m_gaveUp, true) && m_callbacks.gaveUp) {
                    m_callbacks.gaveUp();
                }
                break;
        }
    }

    // How long Step need not be called; none: until something is told.
    std::optional<RetryPolicy::Length> UntilStep() const {
        const std::lock_guard lock(m_mutex);
        if (!m_planned.empty()) {
            return RetryPolicy::Length{0};
        }
        const auto at = m_policy.NextAt();
        if (!at || m_gaveUp) {
            return std::nullopt;
        }
        return std::max(RetryPolicy::Length{0}, std::chrono::ceil<RetryPolicy::Length>(*at - m_clock()));
    }

    // Closes every source and waits for all of them, at worst as long as their transfers. What they report meanwhile
    // is still taken in.
    void Close() {
        m_current.reset();
        for (Closing& closing : m_closing) {
            closing.thread.join();
        }
        m_closing.clear();
    }

    // Ends reads that wait, for a host that is about to join its reader.
    void EndReads() {
        if (m_current) {
            m_current->EndReads();
        }
    }

  private:
    struct Closing {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> done;
    };
    // A server that holds transfers open must not gather sources here: beyond the few that time-outs will end, only one
    // in a while, and never more than so many.
    static constexpr std::size_t kFewClosing = 2;
    static constexpr std::size_t kMostClosing = 8;

    template <class Told>
    void Note(std::uint64_t id, Told told) {
        const std::lock_guard lock(m_mutex);
        if (id != m_currentId) {
            return;
        }
        if (const std::optional<RetryPolicy::Retry> retry = told(m_clock())) {
            m_planned.push_back(*retry);
        }
    }

    void Tell(const RetryPolicy::Retry& retry) {
        if (m_callbacks.retry) {
            m_callbacks.retry(retry);
        }
    }

    // The owner's thread, with m_mutex held.
    Request NewRequest() {
        Request request{++m_currentId, std::nullopt};
        if (const auto last = m_policy.LastMedia()) {
            request.sinceMedia = std::chrono::ceil<RetryPolicy::Length>(m_clock() - *last);
        }
        return request;
    }

    bool MayReplace(Time now) const {
        return m_closing.size() < kFewClosing || (m_closing.size() < kMostClosing && now - m_lastMade >= m_spacing);
    }

    // How long it is at most until there may be one more; none: nobody knows.
    std::optional<RetryPolicy::Length> UntilMore(Time now) const {
        return m_closing.size() < kMostClosing
                   ? std::optional(std::chrono::ceil<RetryPolicy::Length>(m_lastMade + m_spacing - now))
                   : std::nullopt;
    }

    void Replace(const Request& request) {
        std::unique_ptr<SupervisedSource> fresh = m_callbacks.make(request);
        if (!fresh) {
            std::optional<RetryPolicy::Retry> retry;
            {
                const std::lock_guard lock(m_mutex);
                retry = m_policy.SourceFailed(m_clock());
            }
            if (retry) {
                Tell(*retry);
            }
            return;
        }
        m_lastMade = m_clock();
        std::unique_ptr<SupervisedSource> old = std::exchange(m_current, std::move(fresh));
        if (old) {
            old->EndReads();
            auto done = std::make_shared<std::atomic<bool>>(false);
            std::thread thread([old = std::move(old), done]() mutable {
                old.reset();
                *done = true;
            });
            m_closing.push_back({std::move(thread), std::move(done)});
        }
    }

    void ReapClosed() {
        std::erase_if(m_closing, [](Closing& closing) {
            if (!*closing.done) {
                return false;
            }
            closing.thread.join();
            return true;
        });
    }

    const Callbacks m_callbacks;
    const std::function<Time()> m_clock;
    const RetryPolicy::Length m_spacing;  // of sources, while those before them do not end

    mutable std::mutex m_mutex;
    // Guarded by m_mutex:
    RetryPolicy m_policy;
    std::uint64_t m_currentId = 0;
    std::vector<RetryPolicy::Retry> m_planned;  // decided, not told yet

    // The owner's thread only:
    std::unique_ptr<SupervisedSource> m_current;
    std::vector<Closing> m_closing;
    Time m_lastMade{};
    bool m_gaveUp = false;
};

}  // namespace kvmpd::app
