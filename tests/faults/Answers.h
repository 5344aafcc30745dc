// The texts of a faulty origin: manifests and HTTP answers, right ones and wrong ones.
#pragma once

#include <optional>
#include <string>

#include "tests/faults/FaultTable.h"

namespace kvmpd::test {

/// What a file that was there before the component came holds.
inline constexpr char kForeignText[] = "somebody else's file";

struct ManifestForm {
    int first = 0;
    int count = 0;
    std::optional<int> hole;  ///< Index of a segment that both lists of names leave out.
    std::string audioBase;
    std::string videoBase;
    bool template_ = false;      ///< Segments described by a template instead of lists.
    bool emptyTimeline = false;  ///< A timeline without a segment.
    size_t padding = 0;          ///< Bytes of comment between the segments.
};
std::string WriteManifest(const ManifestForm& form);

/// Faults whose answer is an ordinary one: only the manifest in it is wrong.
bool ChangesOnlyTheText(FaultKind kind);
/// Faults of the cache folder: the answer is right.
bool IsDisk(FaultKind kind);

std::string GoodAnswer(const std::string& type, const std::string& body);
std::string RedirectAnswer(const std::string& location);
/// Status line and headers that announce all of `body`.
std::string HeadOnly(const std::string& body);
/// The same with the first half of `body`.
std::string HalfAnswer(const std::string& body);
/// The whole answer of a fault that lies in the answer's bytes.
std::string WrongAnswer(FaultKind kind, const std::string& body);
/// What is left in the component's hands of a faulted answer that it takes for a segment.
std::string KeptOf(FaultKind kind, const std::string& body);

}  // namespace kvmpd::test
