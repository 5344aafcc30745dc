#include "tests/faults/LeftFiles.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "tests/faults/Answers.h"
#include "tests/faults/Oracle.h"

namespace kvmpd::test {
namespace {

using Names = std::set<std::string>;

void Compare(const std::filesystem::path& folder, const Names& expected, std::vector<std::string>& complaints) {
    Names left;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        left.insert(entry.path().filename().string());
    }
    if (left == expected) {
        return;
    }
    std::string text = "left in the cache folder:";
    for (const std::string& name : left) {
        text += " " + name;
    }
    text += "; expected:";
    for (const std::string& name : expected) {
        text += " " + name;
    }
    complaints.push_back(std::move(text));
}

/// The cache folder was gone at the stop. The component could remove nothing, so all that it had delivered before is
/// there, with what it had written of a segment that was lost; and it made no other folder in the place.
void CompareHidden(const FaultOrigin& origin, const Judgement& judgement, int source,
                   std::vector<std::string>& complaints) {
    if (std::filesystem::exists(origin.CacheFolder(source))) {
        complaints.emplace_back("the component made a folder of its own");
    }
    Names expected = judgement.leftFiles;
    expected.insert(judgement.cachedFiles.begin(), judgement.cachedFiles.end());
    Compare(origin.HiddenFolder(), expected, complaints);
}

}  // namespace

std::vector<std::string> ComplaintsOfFolders(FaultOrigin& origin, const Ledger& ledger, int sources) {
    std::vector<std::string> complaints;
    const std::vector<std::filesystem::path> foreign = origin.ForeignFiles();
    for (const std::filesystem::path& path : foreign) {
        std::ifstream file(path, std::ios::binary);
        if (std::string(std::istreambuf_iterator<char>(file), {}) != kForeignText) {
            complaints.emplace_back("a file that is not the component's was touched");
        }
    }
    for (int source = 1; source <= sources; ++source) {
        const Judgement judgement = Judge(ledger, source, FaultOrigin::kDelay);
        const std::filesystem::path folder = origin.CacheFolder(source);
        if (source == sources && std::filesystem::exists(origin.HiddenFolder())) {
            CompareHidden(origin, judgement, source, complaints);
            origin.RestoreFolder();
            continue;
        }
        Names expected = judgement.leftFiles;
        for (const std::filesystem::path& path : foreign) {
            if (path.parent_path() == folder) {
                expected.insert(path.filename().string());
            }
        }
        Compare(folder, expected, complaints);
    }
    return complaints;
}

}  // namespace kvmpd::test
