#include "app/RetryPolicy.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

namespace kvmpd::app {
namespace {

using namespace std::chrono_literals;
using Action = RetryPolicy::Action;
using Trouble = RetryPolicy::Trouble;
using Time = RetryPolicy::Time;

constexpr Time kStart{1h};

RetryPolicy::Options Patient() {
    RetryPolicy::Options options;
    options.giveUpBeforeMedia.reset();
    return options;
}

TEST(RetryPolicyBackoff, GrowsFromOneSecondToThirty) {
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        RetryPolicy::Options options = Patient();
        options.seed = seed;
        RetryPolicy policy(options, kStart);
        Time now = kStart;
        const RetryPolicy::Length ceilings[] = {2s, 4s, 8s, 16s, 30s, 30s, 30s};
        int attempt = 0;
        for (const RetryPolicy::Length ceiling : ceilings) {
            const auto retry = policy.ManifestFailed(now);
            ASSERT_TRUE(retry);
            EXPECT_EQ(retry->attempt, ++attempt);
            EXPECT_GE(retry->wait, std::max<RetryPolicy::Length>(1s, ceiling / 2));
            EXPECT_LE(retry->wait, ceiling);
            now += retry->wait;
            EXPECT_EQ(policy.Next(now).action, Action::kReplace);
        }
    }
}

TEST(RetryPolicyBackoff, DiffersFromHostToHost) {
    std::set<RetryPolicy::Length> waits;
    for (std::uint64_t seed = 0; seed < 50; ++seed) {
        RetryPolicy::Options options = Patient();
        options.seed = seed;
        waits.insert(RetryPolicy(options, kStart).ManifestFailed(kStart)->wait);
    }
    EXPECT_GT(waits.size(), 40u);
}

TEST(RetryPolicyBackoff, NeverEndsAndNeverOverflows) {
    RetryPolicy policy(Patient(), kStart);
    Time now = kStart;
    for (int n = 0; n < 1000; ++n) {
        const auto retry = policy.ManifestFailed(now);
        ASSERT_TRUE(retry);
        ASSERT_GE(retry->wait, 1s);
        ASSERT_LE(retry->wait, 30s);
        now += retry->wait;
        ASSERT_EQ(policy.Next(now).action, Action::kReplace);
    }
}

TEST(RetryPolicyBackoff, BeginsAgainAfterSuccess) {
    RetryPolicy policy(Patient(), kStart);
    Time now = kStart;
    for (int n = 0; n < 6; ++n) {
        now += policy.ManifestFailed(now)->wait;
        policy.Next(now);
    }
    policy.ManifestLoaded(now, 2s);
    const auto retry = policy.ManifestFailed(now + 1h);
    EXPECT_EQ(retry->attempt, 1);
    EXPECT_LE(retry->wait, 2s);
}

TEST(RetryPolicyManifest, IsAskedForAgainWhenTheSourceHasHadOne) {
    RetryPolicy policy(Patient(), kStart);
    policy.ManifestLoaded(kStart, 2s);
    const auto retry = policy.ManifestFailed(kStart + 10s);
    ASSERT_TRUE(retry);
    EXPECT_EQ(retry->action, Action::kWake);
    EXPECT_EQ(policy.NextAt(), kStart + 10s + retry->wait);
    EXPECT_EQ(policy.Next(kStart + 10s + retry->wait - 1ms).action, Action::kNothing);
    EXPECT_EQ(policy.Next(kStart + 10s + retry->wait).action, Action::kWake);
    EXPECT_EQ(policy.Next(kStart + 10s + retry->wait).action, Action::kNothing) << "once is enough";
}

TEST(RetryPolicyManifest, NeedsANewSourceWhenNoneWasEverLoaded) {
    RetryPolicy policy(Patient(), kStart);
    EXPECT_EQ(policy.ManifestFailed(kStart)->action, Action::kReplace);
}

TEST(RetryPolicyManifest, NeedsANewSourceAgainAfterOneWasMade) {
    RetryPolicy policy(Patient(), kStart);
    policy.ManifestLoaded(kStart, 2s);
    const auto failed = policy.SourceFailed(kStart);
    EXPECT_EQ(policy.Next(kStart + failed->wait).action, Action::kReplace);
    EXPECT_EQ(policy.ManifestFailed(kStart + 1min)->action, Action::kReplace);
}

TEST(RetryPolicyManifest, IsNotAskedForTwiceAtATime) {
    RetryPolicy policy(Patient(), kStart);
    EXPECT_TRUE(policy.ManifestFailed(kStart));
    EXPECT_FALSE(policy.ManifestFailed(kStart + 10ms));
}

TEST(RetryPolicyManifest, ThatCameMeanwhileNeedsNoTry) {
    RetryPolicy policy(Patient(), kStart);
    policy.ManifestLoaded(kStart, 2s);
    const auto retry = policy.ManifestFailed(kStart);
    policy.ManifestLoaded(kStart + 100ms, 2s);
    EXPECT_EQ(policy.Next(kStart + retry->wait).action, Action::kNothing);
}

TEST(RetryPolicyWake, ThatIsRefusedLeadsToANewSourceAtOnce) {
    RetryPolicy policy(Patient(), kStart);
    policy.ManifestLoaded(kStart, 2s);
    const Time due = kStart + policy.ManifestFailed(kStart)->wait;
    EXPECT_EQ(policy.Next(due).action, Action::kWake);
    const auto retry = policy.WakeRefused(due + 5ms);
    ASSERT_TRUE(retry);
    EXPECT_EQ(retry->trouble, Trouble::kWakeRefused);
    EXPECT_EQ(policy.Next(due + 5ms).action, Action::kReplace);
}

// The request that a wake led to hangs, so that the source is replaced; the delay that the new one is given at its
// beginning is answered as any other.
TEST(RetryPolicyWake, IsForgottenWithTheSourceThatWasWoken) {
    RetryPolicy::Options options = Patient();
    options.stallLimit = 5s;
    RetryPolicy policy(options, kStart);
    policy.ManifestLoaded(kStart, 1s);
    const Time woken = kStart + policy.ManifestFailed(kStart)->wait;
    EXPECT_EQ(policy.Next(woken).action, Action::kWake);
    EXPECT_EQ(policy.Next(woken + 5s).action, Action::kReplace);
    EXPECT_FALSE(policy.WakeRefused(woken + 5s));
    EXPECT_EQ(policy.Next(woken + 5s).action, Action::kNothing);
}

TEST(RetryPolicyWake, ThatNobodyAskedForIsTheHostsOwnDelay) {
    RetryPolicy policy(Patient(), kStart);
    policy.ManifestLoaded(kStart, 2s);
    EXPECT_FALSE(policy.WakeRefused(kStart + 1s));
    EXPECT_EQ(policy.Next(kStart + 1min).action, Action::kNothing);
}

TEST(RetryPolicyGivingUp, ComesThirtySecondsAfterTheStartWithoutMedia) {
    RetryPolicy policy({}, kStart);
    policy.ManifestLoaded(kStart + 20s, 2s);  // a manifest is no media
    EXPECT_EQ(policy.NextAt(), kStart + 30s);
    EXPECT_EQ(policy.Next(kStart + 30s - 1ms).action, Action::kNothing);
    EXPECT_EQ(policy.Next(kStart + 30s).action, Action::kGiveUp);
    policy.MediaArrived(kStart + 31s);
    EXPECT_EQ(policy.Next(kStart + 31s).action, Action::kGiveUp) << "there is no way back";
}

TEST(RetryPolicyGivingUp, NeverComesOnceMediaHasFlowed) {
    RetryPolicy policy({}, kStart);
    policy.MediaArrived(kStart + 29s);
    EXPECT_EQ(policy.NextAt(), std::nullopt);
    EXPECT_EQ(policy.Next(kStart + 10000h).action, Action::kNothing);
}

TEST(RetryPolicyGivingUp, ComesAfterTheLimitThatWasSet) {
    RetryPolicy::Options options;
    options.giveUpAfterMedia = 5min;
    RetryPolicy policy(options, kStart);
    policy.MediaArrived(kStart + 10s);
    policy.MediaArrived(kStart + 20s);
    EXPECT_EQ(policy.Next(kStart + 20s + 5min - 1ms).action, Action::kNothing);
    EXPECT_EQ(policy.Next(kStart + 20s + 5min).action, Action::kGiveUp);
}

TEST(RetryPolicyGivingUp, DoesNotCountTheTimeInWhichTheHostTookNothing) {
    RetryPolicy::Options options;
    options.giveUpAfterMedia = 60s;
    options.stallLimit = 30s;
    RetryPolicy policy(options, kStart);
    policy.MediaArrived(kStart);
    policy.HostWasBusy(kStart + 10min);
    EXPECT_EQ(policy.Next(kStart + 10min + 29s).action, Action::kNothing);
    EXPECT_EQ(policy.Next(kStart + 10min + 30s).action, Action::kReplace);
    EXPECT_EQ(policy.Next(kStart + 10min + 60s).action, Action::kGiveUp);
}

TEST(RetryPolicyStall, LeadsToANewSourceLessAndLessOften) {
    RetryPolicy::Options options = Patient();
    options.stallLimit = 30s;
    RetryPolicy policy(options, kStart);
    policy.ManifestLoaded(kStart, 2s);
    policy.MediaArrived(kStart);
    Time now = kStart;
    for (const auto wait : {30s, 60s, 120s, 120s, 120s}) {
        EXPECT_EQ(policy.NextAt(), now + wait);
        EXPECT_EQ(policy.Next(now + wait - 1ms).action, Action::kNothing);
        now += wait;
        const auto decision = policy.Next(now);
        EXPECT_EQ(decision.action, Action::kReplace);
        EXPECT_EQ(decision.trouble, Trouble::kStalled);
    }
    policy.MediaArrived(now);
    EXPECT_EQ(policy.NextAt(), now + 30s);
}

TEST(RetryPolicyStall, IsNoStallWhileSegmentsAreThatLong) {
    RetryPolicy::Options options = Patient();
    options.stallLimit = 30s;
    RetryPolicy policy(options, kStart);
    policy.ManifestLoaded(kStart, 20s);
    policy.MediaArrived(kStart);
    EXPECT_EQ(policy.NextAt(), kStart + 60s);
}

TEST(RetryPolicyStall, IsNoneWhileTheManifestIsBeingAskedForAgain) {
    RetryPolicy::Options options = Patient();
    options.stallLimit = 30s;
    RetryPolicy policy(options, kStart);
    policy.ManifestLoaded(kStart, 2s);
    policy.MediaArrived(kStart);
    Time now = kStart + 10s;
    for (int n = 0; n < 20; ++n) {  // minutes without media, and the same source all the time
        now += policy.ManifestFailed(now)->wait;
        ASSERT_EQ(policy.Next(now).action, Action::kWake);
        now += 5s;  // the request itself
        ASSERT_EQ(policy.Next(now).action, Action::kNothing);
    }
    policy.ManifestLoaded(now, 2s);
    EXPECT_EQ(policy.Next(now + 29s).action, Action::kNothing) << "its downloads have only begun";
    EXPECT_EQ(policy.Next(now + 30s).action, Action::kReplace);
}

TEST(RetryPolicyStall, LongerThanTheLongestIsNotShortened) {
    RetryPolicy::Options options = Patient();
    options.stallLimit = 10min;
    RetryPolicy policy(options, kStart);
    Time now = kStart;
    for (int n = 0; n < 70; ++n) {
        ASSERT_EQ(policy.NextAt(), now + 10min);
        now += 10min;
        ASSERT_EQ(policy.Next(now).action, Action::kReplace);
    }
}

// Before the first manifest no segment's length is known that would be a lower bound.
TEST(RetryPolicyStall, NeverComesSoonerThanAnyOtherTry) {
    RetryPolicy::Options options = Patient();
    options.stallLimit = 50ms;
    RetryPolicy policy(options, kStart);
    EXPECT_EQ(policy.NextAt(), kStart + options.shortest);
    EXPECT_EQ(policy.Next(kStart + options.shortest - 1ms).action, Action::kNothing);
    policy.ManifestLoaded(kStart, 10ms);
    EXPECT_EQ(policy.NextAt(), kStart + options.shortest);
}

TEST(RetryPolicyStall, IsNobodysBusinessUnlessAskedFor) {
    RetryPolicy policy(Patient(), kStart);
    policy.MediaArrived(kStart);
    EXPECT_EQ(policy.Next(kStart + 1000h).action, Action::kNothing);
}

// Whatever is reported, in whatever order, and whatever the user asked for.
TEST(RetryPolicyRate, IsAtMostTwoRequestsASecond) {
    for (std::uint64_t seed = 0; seed < 50; ++seed) {
        RetryPolicy::Options options = Patient();
        options.seed = seed;
        options.stallLimit = RetryPolicy::Length(seed % 3 == 0 ? 0 : seed);
        RetryPolicy policy(options, kStart);
        std::minstd_rand random(static_cast<unsigned>(seed + 1));
        std::vector<Time> asked;  // a manifest each
        for (Time now = kStart; now < kStart + 60s; now += 10ms) {
            switch (random() % 40) {
                case 0:
                    policy.ManifestFailed(now);
                    break;
                case 1:
                    policy.ManifestLoaded(now, 20ms);
                    break;
                case 2:
                    policy.WakeRefused(now);
                    break;
                case 3:
                    policy.SourceFailed(now);
                    break;
                case 4:
                    policy.MediaArrived(now);
                    break;
                default:
                    break;
            }
            if (const Action action = policy.Next(now).action; action != Action::kNothing) {
                asked.push_back(now);
            }
        }
        ASSERT_GT(asked.size(), 2u);
        for (std::size_t n = 2; n < asked.size(); ++n) {
            ASSERT_GE(asked[n] - asked[n - 2], 1s) << "seed " << seed;
        }
    }
}

TEST(RetryPolicySource, ThatFailsAgainAndAgainIsReplacedMoreAndMoreSlowly) {
    RetryPolicy policy(Patient(), kStart);
    Time now = kStart;
    for (int attempt = 1; attempt <= 6; ++attempt) {
        const auto retry = policy.SourceFailed(now);
        EXPECT_EQ(retry->attempt, attempt);
        now += retry->wait;
        EXPECT_EQ(policy.Next(now).action, Action::kReplace);
        policy.ManifestLoaded(now, 2s);  // that alone is no success
    }
    policy.MediaArrived(now);
    EXPECT_EQ(policy.SourceFailed(now)->attempt, 1);
}

TEST(RetryPolicySource, ThatFailsIsReplacedEvenIfItsManifestWasToBeAskedForAgain) {
    RetryPolicy policy(Patient(), kStart);
    policy.ManifestLoaded(kStart, 2s);
    EXPECT_EQ(policy.ManifestFailed(kStart)->action, Action::kWake);
    const auto retry = policy.SourceFailed(kStart);
    ASSERT_TRUE(retry);
    EXPECT_EQ(policy.Next(kStart + retry->wait).action, Action::kReplace);
    EXPECT_FALSE(policy.Next(kStart + 1h).action == Action::kWake);
}

}  // namespace
}  // namespace kvmpd::app
