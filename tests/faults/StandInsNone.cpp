// Nothing stands in front of this platform's functions: the list leaves out the cells that need it.
#include <utility>

#include "tests/faults/StandIns.h"

namespace kvmpd::test {

struct ThreadTally::Count {};

NameStandIn::NameStandIn(std::string host, std::function<LookUpAnswer()> /*answer*/) : m_host(std::move(host)) {}

NameStandIn::~NameStandIn() = default;

PortStandIn::PortStandIn(std::uint16_t port, std::function<bool()> /*isClosed*/) : m_port(port) {}

PortStandIn::~PortStandIn() = default;

ThreadTally::ThreadTally() = default;

std::optional<size_t> ThreadTally::Live() const {
    return std::nullopt;
}

ThreadTally::Scope::Scope(const ThreadTally& /*tally*/) {}

ThreadTally::Scope::~Scope() = default;

}  // namespace kvmpd::test
