#include "tests/faults/Oracle.h"

#include <algorithm>

namespace kvmpd::test {
namespace {

constexpr int kAttempts = 3;

struct Queued {
    int number = 0;
    std::optional<int> name;  // of both files; none when the lists are too short
};

/// The name at `index` of lists that leave out the one at `hole`.
std::optional<int> NameAt(const ManifestFetch& manifest, int index) {
    const int named = manifest.hole && index >= *manifest.hole ? index + 1 : index;
    return named < manifest.count ? std::optional(manifest.first + named) : std::nullopt;
}

class Loader {
  public:
    Loader(Judgement& judgement, int delay) : m_judgement(judgement), m_delay(delay) {}

    void Take(const ManifestFetch& manifest) {
        if (manifest.faulted) {
            m_judgement.newsAfterFault = false;
        }
        if (manifest.effect == Effect::kManifestFailed) {
            ++m_judgement.failed;
        } else if (manifest.effect == Effect::kManifestMalformed) {
            ++m_judgement.malformed;
        } else if (const int end = manifest.first + manifest.count; end > m_end) {
            m_end = end;
            ++m_judgement.news;
            m_judgement.newsAfterFault = !manifest.faulted;
            Queue(manifest);
        }
    }
    const std::vector<Queued>& All() const { return m_queue; }

  private:
    void Queue(const ManifestFetch& manifest) {
        if (m_queue.empty()) {
            m_last = manifest.first + std::max(manifest.count - 1 - m_delay, 0) - 1;
        }
        for (int i = 0; i < manifest.count; ++i) {
            if (manifest.first + i > m_last) {
                m_judgement.skipped += static_cast<size_t>(manifest.first + i - m_last - 1);
                m_last = manifest.first + i;
                m_queue.push_back({m_last, NameAt(manifest, i)});
            }
        }
    }

    Judgement& m_judgement;
    const int m_delay;
    int m_end = 0;
    int m_last = 0;
    std::vector<Queued> m_queue;
};

enum class Fate { kPending, kComplete, kLost };

struct File {
    Fate fate = Fate::kPending;
    const std::string* body = nullptr;
    bool folderGone = false;  // at the last attempt
};

/// The fetches at one door, taken segment by segment.
class Door {
  public:
    Door(const std::vector<SegmentFetch>& fetches, int source, const char* extension, Judgement& judgement)
        : m_extension(extension), m_judgement(judgement) {
        for (const SegmentFetch& fetch : fetches) {
            if (fetch.source == source) {
                m_fetches.push_back(&fetch);
            }
        }
    }

    File Take(std::optional<int> name) {
        if (!name) {
            return {Fate::kLost};
        }
        bool folderGone = false;
        for (int attempt = 0; attempt < kAttempts; ++attempt) {
            if (m_next == m_fetches.size() || !m_fetches[m_next]->finished) {
                return {Fate::kPending};
            }
            const SegmentFetch& fetch = *m_fetches[m_next++];
            if (fetch.number && fetch.number != name) {
                m_judgement.complaints.push_back("asked for " + std::to_string(*fetch.number) + m_extension +
                                                 " instead of " + std::to_string(*name));
            }
            if (Succeeds(fetch)) {
                return {Fate::kComplete, fetch.body.get()};
            }
            folderGone = fetch.effect == Effect::kNoFolder;
            if (fetch.effect == Effect::kPartArrived && !fetch.fileThere) {
                m_judgement.leftFiles.insert(std::to_string(*name) + m_extension);
            }
        }
        return {Fate::kLost, nullptr, folderGone};
    }
    bool IsExhausted() const { return m_next == m_fetches.size(); }

  private:
    static bool Succeeds(const SegmentFetch& fetch) {
        switch (fetch.effect) {
            case Effect::kTaken:
            case Effect::kCut:
                return !fetch.fileThere || fetch.body->empty();
            default:
                return false;
        }
    }

    std::vector<const SegmentFetch*> m_fetches;
    const char* const m_extension;
    Judgement& m_judgement;
    size_t m_next = 0;
};

}  // namespace

Judgement Judge(const Ledger& ledger, int source, int delay) {
    Judgement judgement;
    Loader loader(judgement, delay);
    bool underWay = false;
    for (const ManifestFetch& manifest : ledger.manifests) {
        if (manifest.source != source) {
            continue;
        }
        if (!manifest.finished) {
            underWay = true;
            judgement.newsAfterFault = false;
            break;
        }
        loader.Take(manifest);
    }
    Door audioDoor(ledger.audio, source, ".m4a", judgement);
    Door videoDoor(ledger.video, source, ".mp4", judgement);
    bool known = true;
    for (const Queued& segment : loader.All()) {
        const File audio = audioDoor.Take(segment.name);
        const File video = audio.fate == Fate::kPending ? File() : videoDoor.Take(segment.name);
        if (video.fate == Fate::kPending) {
            known = false;
            break;
        }
        judgement.settledThrough = segment.number;
        if (audio.fate == Fate::kComplete && video.fate == Fate::kComplete) {
            ++judgement.delivered;
            judgement.audio += *audio.body;
            judgement.video += *video.body;
            judgement.cachedFiles.insert(std::to_string(*segment.name) + ".m4a");
            judgement.cachedFiles.insert(std::to_string(*segment.name) + ".mp4");
        } else {
            ++judgement.lost;
            if (audio.fate == Fate::kComplete && video.folderGone) {
                // It cannot be removed with its segment: its folder is not there.
                judgement.leftFiles.insert(std::to_string(*segment.name) + ".m4a");
            }
        }
    }
    judgement.settled = known && !underWay;
    if (judgement.settled && !(audioDoor.IsExhausted() && videoDoor.IsExhausted())) {
        judgement.complaints.emplace_back("asked for a segment that no manifest has queued");
    }
    return judgement;
}

size_t MostManifestsWithin(const Ledger& ledger, std::chrono::milliseconds window) {
    const auto& manifests = ledger.manifests;
    size_t most = 0;
    for (size_t i = 0; i < manifests.size(); ++i) {
        size_t inWindow = 1;
        while (i + inWindow < manifests.size() && manifests[i + inWindow].at - manifests[i].at < window) {
            ++inWindow;
        }
        most = std::max(most, inWindow);
    }
    return most;
}

}  // namespace kvmpd::test
