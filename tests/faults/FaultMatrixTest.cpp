// The matrix: every kind of fault at every target, once, for ten seconds and for ever. The cells of a family run at the
// same time, each with an origin of its own: they mostly wait.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "filter/KVMPDSrc.h"
#include "tests/faults/CompressedTime.h"
#include "tests/faults/FaultCell.h"
#include "tests/faults/FaultReport.h"
#include "tests/faults/FaultTable.h"
#include "tests/faults/PlatformList.h"

namespace kvmpd::test {
namespace {

#ifndef KV_PARALLEL_CELLS
#define KV_PARALLEL_CELLS 80
#endif

struct Family {
    const char* name;
    std::vector<FaultKind> kinds;
};

std::ostream& operator<<(std::ostream& out, const Family& family) {
    return out << family.name;
}

const std::vector<Family>& Families() {
    using enum FaultKind;
    static const std::vector<Family> families{
        {"ConnectionsThatFail",
         {kPortClosed, kRedirectToClosedPort, kNameNotResolved, kNameTryAgain, kNameSlow, kResetBeforeStatus,
          kResetMidBody, kTlsHandshake, kTlsExpired, kTlsWrongHost}},
        {"AnswersThatAreWrong",
         {kStatus404, kStatus500, kStatus503, kRedirectLoop, kRedirectToOtherScheme, kHtml, kEmptyBody, kTruncatedBody,
          kBodyTooLong, kNoContentLength, kWrongContentLength}},
        {"TimeTextsAndTheCacheFolder",
         {kTrickle, kStallThatEnds, kMalformedXml, kOtherShape, kEmptyTimeline, kEdgeBackwards, kHole, kNumberJump,
          kHugeManifest, kFolderGone, kFileThere}},
        {"Stalls", {kStallBeforeBody, kStallMidBody, kEndlessTrickle}},
    };
    return families;
}

std::vector<FaultCase> CellsOf(const Family& family) {
    std::vector<FaultCase> cells;
    for (const FaultKind kind : family.kinds) {
        for (const Target target : kTargets) {
            for (const Duration duration : kDurations) {
                if (LeftOut(kind, target).empty() && NotOnThisList(kind, target).empty()) {
                    cells.push_back({kind, target, duration});
                }
            }
        }
    }
    // Those that take longest first, so that none is left alone at the end.
    std::ranges::stable_sort(cells, {}, [](const FaultCase& cell) {
        return cell.duration != Duration::kForEver ? 2 : IsManifest(cell.target) ? 0 : 1;
    });
    return cells;
}

/// Runs all cells, several at a time; the results in the cells' order.
std::vector<CellResult> RunAll(const std::vector<FaultCase>& cells) {
    std::vector<CellResult> results(cells.size());
    std::atomic<size_t> next{0};
    std::vector<std::thread> workers;
    for (size_t i = 0; i < std::min<size_t>(cells.size(), KV_PARALLEL_CELLS); ++i) {
        workers.emplace_back([&] {
            for (size_t index = next++; index < cells.size(); index = next++) {
                results[index] = RunCell(cells[index]);
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    return results;
}

/// Writes the page at the end of the program, where it is asked for.
class PageWriter : public testing::Environment {
  public:
    void TearDown() override {
        const char* const file = std::getenv("KV_FAULTS_REPORT");
        if (file != nullptr && !FaultReport::Instance().IsEmpty()) {
            std::ofstream out(file, std::ios::binary);
            FaultReport::Instance().Write(out);
            EXPECT_TRUE(out.flush()) << "cannot write " << file;
        }
    }
};
const testing::Environment* const g_pageWriter = testing::AddGlobalTestEnvironment(new PageWriter);

class FaultMatrix : public testing::TestWithParam<Family> {};

TEST_P(FaultMatrix, EveryCellComesToItsOutcome) {
    const std::vector<FaultCase> cells = CellsOf(GetParam());
    if (cells.empty()) {
        GTEST_SKIP() << "no kind of this family is on this system's list; their own entries say why";
    }
    const ShortReceiveTimeout timeout(WantsShortTimeout(GetParam().kinds.front()) ? kShortReceiveTimeout
                                                                                  : milliseconds(0));
    const std::vector<CellResult> results = RunAll(cells);
    for (const CellResult& cell : results) {
        for (const std::string& failure : cell.failures) {
            ADD_FAILURE() << NameOf(cell.fault) << ": " << failure;
        }
    }
    FaultReport::Instance().Add(results);
    EXPECT_EQ(DllCanUnloadNow(), S_OK);  // no source is left
}

INSTANTIATE_TEST_SUITE_P(All, FaultMatrix, testing::ValuesIn(Families()),
                         [](const auto& family) { return std::string(family.param.name); });

/// One entry for each kind and reason that this system's list goes without.
struct NotOnList {
    FaultKind kind;
    std::string targets;
    std::string_view reason;
};

std::vector<NotOnList> WhatIsNotOnThisList() {
    std::vector<NotOnList> list;
    for (const FaultKind kind : kKinds) {
        std::map<std::string_view, std::string> targets;  // by reason
        for (const Target target : kTargets) {
            if (const std::string_view reason = NotOnThisList(kind, target);
                LeftOut(kind, target).empty() && !reason.empty()) {
                targets[reason] += (targets[reason].empty() ? "" : ", ") + std::string(NameOf(target));
            }
        }
        for (const auto& [reason, names] : targets) {
            list.push_back({kind, names, reason});
        }
    }
    return list;
}

class FaultMatrixNotHere : public testing::TestWithParam<NotOnList> {};

/// Says what is left out, as a test that is skipped: whoever counts tests sees it.
TEST_P(FaultMatrixNotHere, Because) {
    GTEST_SKIP() << NameOf(GetParam().kind) << " (" << GetParam().targets << "): " << GetParam().reason;
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(FaultMatrixNotHere);  // the full list goes without nothing
INSTANTIATE_TEST_SUITE_P(All, FaultMatrixNotHere, testing::ValuesIn(WhatIsNotOnThisList()), [](const auto& entry) {
    std::string name;
    bool begins = true;
    for (const unsigned char letter : NameOf(entry.param.kind)) {
        if (std::isalnum(letter) != 0) {
            name += static_cast<char>(begins ? std::toupper(letter) : letter);
        }
        begins = std::isalnum(letter) == 0;
    }
    return name;
});

TEST(FaultMatrixList, HasEveryKindInExactlyOneFamily) {
    for (const FaultKind kind : kKinds) {
        size_t found = 0;
        for (const Family& family : Families()) {
            for (const FaultKind one : family.kinds) {
                found += one == kind ? 1 : 0;
            }
        }
        EXPECT_EQ(found, 1u) << NameOf(kind);
    }
}

}  // namespace
}  // namespace kvmpd::test
