// The decision table by itself, and the rules by which a ledger is judged.

#include "tests/faults/FaultTable.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/faults/Answers.h"
#include "tests/faults/FaultOrigin.h"
#include "tests/faults/Oracle.h"

namespace kvmpd::test {
namespace {

ManifestFetch Manifest(int first, int count, Effect effect = Effect::kTaken) {
    ManifestFetch fetch;
    fetch.first = first;
    fetch.count = count;
    fetch.effect = effect;
    fetch.faulted = effect != Effect::kTaken;
    fetch.finished = true;
    return fetch;
}

SegmentFetch Fetch(int number, Effect effect = Effect::kTaken, bool fileThere = false) {
    SegmentFetch fetch;
    fetch.number = number;
    fetch.effect = effect;
    fetch.body = std::make_shared<const std::string>(std::to_string(number) + ";");
    fetch.fileThere = fileThere;
    fetch.finished = true;
    return fetch;
}

TEST(FaultTableNames, AreThereAndDiffer) {
    std::set<std::string_view> names;
    for (const FaultKind kind : kKinds) {
        EXPECT_FALSE(NameOf(kind).empty());
        EXPECT_TRUE(names.insert(NameOf(kind)).second) << NameOf(kind);
    }
    EXPECT_EQ(names.size(), kKinds.size());
}

TEST(FaultTableTargets, EveryKindHasOne) {
    for (const FaultKind kind : kKinds) {
        size_t targets = 0;
        for (const Target target : kTargets) {
            targets += LeftOut(kind, target).empty() ? 1 : 0;
        }
        EXPECT_GE(targets, 1u) << NameOf(kind);
    }
}

TEST(FaultTableOutcomes, APassingFaultOfAManifestLosesNoSegmentThatWasListed) {
    for (const FaultKind kind : kKinds) {
        if (!LeftOut(kind, Target::kManifest).empty() || kind == FaultKind::kHole) {
            continue;  // a list that lacks a name has lost it
        }
        const Outcome outcome = OutcomeOf(kind, Target::kManifest, Duration::kOnce);
        EXPECT_TRUE(outcome == Outcome::kNothingLost || outcome == Outcome::kWokenByHost ||
                    outcome == Outcome::kNotOfferedNotAsked || outcome == Outcome::kStallSeenByHost)
            << NameOf(kind);
    }
}

TEST(FaultTableOutcomes, AudioAndVideoAreTreatedAlike) {
    for (const FaultKind kind : kKinds) {
        EXPECT_EQ(LeftOut(kind, Target::kAudio), LeftOut(kind, Target::kVideo)) << NameOf(kind);
        for (const Duration duration : kDurations) {
            if (LeftOut(kind, Target::kAudio).empty()) {
                EXPECT_EQ(OutcomeOf(kind, Target::kAudio, duration), OutcomeOf(kind, Target::kVideo, duration))
                    << NameOf(kind);
            }
        }
    }
}

TEST(FaultTableOutcomes, OneFailedAttemptLosesASegmentOnlyWhenAFileStandsInTheWay) {
    for (const FaultKind kind : kKinds) {
        if (!LeftOut(kind, Target::kVideo).empty()) {
            continue;
        }
        const Effect effect = EffectOf(kind, Target::kVideo);
        const bool inTheWay = effect == Effect::kPartArrived || effect == Effect::kFileInTheWay;
        EXPECT_EQ(OutcomeOf(kind, Target::kVideo, Duration::kOnce) == Outcome::kOneLost, inTheWay) << NameOf(kind);
    }
}

TEST(FaultOriginSegments, AreRecomputableAndNoTwoAreAlike) {
    EXPECT_EQ(SegmentBody(Target::kVideo, 109), SegmentBody(Target::kVideo, 109));
    EXPECT_NE(SegmentBody(Target::kVideo, 109), SegmentBody(Target::kVideo, 110));
    EXPECT_NE(SegmentBody(Target::kAudio, 109).substr(6), SegmentBody(Target::kVideo, 109).substr(6, 703));
}

TEST(FaultOriginManifest, LeavesOutTheNameInTheHoleButNotItsDuration) {
    ManifestForm form;
    form.first = 100;
    form.count = 3;
    form.hole = 1;
    const std::string text = WriteManifest(form);
    EXPECT_EQ(text.find("101.mp4"), std::string::npos);
    EXPECT_NE(text.find("102.mp4"), std::string::npos);
    size_t entries = 0;
    for (size_t at = text.find("<S d="); at != std::string::npos; at = text.find("<S d=", at + 1)) {
        ++entries;
    }
    EXPECT_EQ(entries, 3u);
}

TEST(Judge, StartsBehindTheEdgeAndQueuesWhatIsNew) {
    Ledger ledger;
    ledger.manifests = {Manifest(100, 8), Manifest(102, 8)};
    for (const int number : {106, 107, 108, 109}) {
        ledger.audio.push_back(Fetch(number));
        ledger.video.push_back(Fetch(number));
    }
    const Judgement judgement = Judge(ledger, 1, /*delay=*/1);
    EXPECT_EQ(judgement.video, "106;107;108;109;");
    EXPECT_EQ(judgement.audio, judgement.video);
    EXPECT_EQ(judgement.delivered, 4u);
    EXPECT_EQ(judgement.news, 2u);
    EXPECT_TRUE(judgement.settled);
    EXPECT_TRUE(judgement.complaints.empty());
}

TEST(Judge, TakesOnlyWhatTheOneSourceAskedFor) {
    Ledger ledger;
    ledger.manifests = {Manifest(100, 2), Manifest(104, 2)};
    ledger.audio = {Fetch(100), Fetch(104), Fetch(105)};
    ledger.video = {Fetch(104), Fetch(105)};
    ledger.manifests[1].source = 2;
    for (SegmentFetch* fetch : {&ledger.audio[1], &ledger.audio[2], &ledger.video[0], &ledger.video[1]}) {
        fetch->source = 2;
    }
    EXPECT_FALSE(Judge(ledger, 1, /*delay=*/1).settled);
    EXPECT_EQ(Judge(ledger, 1, /*delay=*/1).video, "");
    EXPECT_TRUE(Judge(ledger, 2, /*delay=*/1).settled);
    EXPECT_EQ(Judge(ledger, 2, /*delay=*/1).video, "104;105;");
    EXPECT_EQ(Judge(ledger, 2, /*delay=*/1).cachedFiles,
              (std::set<std::string>{"104.m4a", "104.mp4", "105.m4a", "105.mp4"}));
}

TEST(Judge, ASegmentOfWhichOneFileFailedThreeTimesIsLostAsAWhole) {
    Ledger ledger;
    ledger.manifests = {Manifest(100, 2)};
    ledger.audio = {Fetch(100), Fetch(101)};
    ledger.video = {Fetch(100, Effect::kNothingArrived), Fetch(100, Effect::kNothingArrived),
                    Fetch(100, Effect::kNothingArrived), Fetch(101)};
    const Judgement judgement = Judge(ledger, 1, /*delay=*/1);
    EXPECT_EQ(judgement.audio, "101;");
    EXPECT_EQ(judgement.lost, 1u);
    EXPECT_EQ(judgement.settledThrough, 101);
    EXPECT_TRUE(judgement.leftFiles.empty());
}

TEST(Judge, APartOfAFileStandsInTheWayOfTheNextAttempts) {
    Ledger ledger;
    ledger.manifests = {Manifest(100, 1)};
    ledger.audio = {Fetch(100, Effect::kPartArrived), Fetch(100, Effect::kTaken, true),
                    Fetch(100, Effect::kTaken, true)};
    ledger.video = {Fetch(100)};
    const Judgement judgement = Judge(ledger, 1, /*delay=*/0);
    EXPECT_EQ(judgement.lost, 1u);
    EXPECT_EQ(judgement.leftFiles, std::set<std::string>{"100.m4a"});
}

TEST(Judge, ASegmentOutOfTurnOrAFourthAttemptIsAComplaint) {
    Ledger ledger;
    ledger.manifests = {Manifest(100, 2)};
    ledger.audio = {Fetch(101), Fetch(101)};
    ledger.video = {Fetch(100), Fetch(101)};
    EXPECT_EQ(Judge(ledger, 1, /*delay=*/1).complaints.size(), 1u);
    ledger.audio = {Fetch(100), Fetch(101), Fetch(101)};
    EXPECT_EQ(Judge(ledger, 1, /*delay=*/1).complaints.size(), 1u);
}

TEST(Judge, NamesBehindAHoleMoveUpAndTheLastSegmentHasNone) {
    Ledger ledger;
    ManifestFetch manifest = Manifest(100, 4);
    manifest.hole = 1;
    ledger.manifests = {manifest};
    ledger.audio = {Fetch(100), Fetch(102), Fetch(103)};
    ledger.video = ledger.audio;
    const Judgement judgement = Judge(ledger, 1, /*delay=*/3);
    EXPECT_EQ(judgement.video, "100;102;103;");
    EXPECT_EQ(judgement.lost, 1u);
    EXPECT_TRUE(judgement.settled);
}

TEST(Judge, FailedManifestsAreCountedByTheirKindAndNumbersThatWereNeverListedAreSkipped) {
    Ledger ledger;
    ledger.manifests = {Manifest(100, 2), Manifest(0, 0, Effect::kManifestFailed),
                        Manifest(0, 0, Effect::kManifestMalformed), Manifest(90, 2, Effect::kManifestNoNews),
                        Manifest(105, 2)};
    const Judgement judgement = Judge(ledger, 1, /*delay=*/1);
    EXPECT_EQ(judgement.failed, 1u);
    EXPECT_EQ(judgement.malformed, 1u);
    EXPECT_EQ(judgement.news, 2u);
    EXPECT_EQ(judgement.skipped, 3u);
    EXPECT_TRUE(judgement.newsAfterFault);
    EXPECT_FALSE(judgement.settled);
}

Ledger AskedForAt(const std::vector<int>& times) {
    Ledger ledger;
    for (const int time : times) {
        ledger.manifests.emplace_back();
        ledger.manifests.back().at += std::chrono::milliseconds(time);
    }
    return ledger;
}

TEST(RateOfManifests, CountsTheMostWithinTheWindowWhereverItBegins) {
    constexpr std::chrono::milliseconds window{1000};
    EXPECT_EQ(MostManifestsWithin(AskedForAt({}), window), 0u);
    EXPECT_EQ(MostManifestsWithin(AskedForAt({5}), window), 1u);
    EXPECT_EQ(MostManifestsWithin(AskedForAt({0, 1000, 2000, 3000}), window), 1u);
    EXPECT_EQ(MostManifestsWithin(AskedForAt({900, 1000, 2000, 3000}), window), 2u);
    EXPECT_EQ(MostManifestsWithin(AskedForAt({0, 1000, 1400, 1999, 2000}), window), 3u);
    EXPECT_EQ(MostManifestsWithin(AskedForAt({0, 100, 200, 300, 1300}), window), 4u);
}

}  // namespace
}  // namespace kvmpd::test
