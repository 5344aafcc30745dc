#pragma once

namespace kvmpd {

/// Where a dump of requests and responses would be attached to the client; it has no state and does nothing.
class NetKernelDumper {
  protected:
    NetKernelDumper() = default;
    ~NetKernelDumper() = default;
};

}  // namespace kvmpd
