// Collects what the cells came to and writes it as a page.
#pragma once

#include <iosfwd>
#include <vector>

#include "tests/faults/FaultCell.h"

namespace kvmpd::test {

class FaultReport {
  public:
    static FaultReport& Instance();

    void Add(const std::vector<CellResult>& results);
    bool IsEmpty() const { return m_results.empty(); }
    void Write(std::ostream& out) const;

  private:
    const CellResult* Find(const FaultCase& fault) const;
    void WriteTotals(std::ostream& out) const;
    void WriteStops(std::ostream& out) const;
    void WriteTable(std::ostream& out) const;
    void WriteLeftOut(std::ostream& out) const;
    void WriteFailures(std::ostream& out) const;

    std::vector<CellResult> m_results;  // used on the test program's main thread
};

}  // namespace kvmpd::test
