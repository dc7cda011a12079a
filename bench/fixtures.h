// Benchmark fixtures: a copy of a media file with a container of N records
// of P bytes each, built through the library's save API, and the layout of
// that container as the library's queries report it.
#ifndef TEV_BENCH_FIXTURES_H
#define TEV_BENCH_FIXTURES_H

#include <cstdint>
#include <string>
#include <vector>

#include "bench_system.h"

namespace tevbench {

// Data type of the benchmark's records: a caller-defined type without
// sub-information.
inline constexpr uint32_t kRecordType = 1;

struct Scenario {
    std::string mediaLabel;  // "mp4" or "jpeg"
    std::string mediaPath;
    int64_t recordSize;
    uint32_t records;
};

// Positions in the fixture file, all from the library's parse of it.
struct Layout {
    int64_t fileSize = 0;
    int64_t dataStart = 0;  // first byte of the appended region (box header included)
    int64_t directory = 0;  // first byte of the directory
    std::vector<Range> recordHeads;  // each record's bytes in front of its data
    Range targetData{0, 0};          // data of the record the edits and extracts use
};

class Fixture {
  public:
    // Writes the media with the scenario's records saved behind it to `path`.
    bool build(const Scenario& scenario, const std::string& path);

    const std::string& path() const { return path_; }
    const Scenario& scenario() const { return scenario_; }
    const Layout& layout() const { return layout_; }
    int64_t containerSize() const { return layout_.fileSize - layout_.dataStart; }
    // The record in the middle of the directory: what replace, delete and
    // extract work on.
    const std::string& targetName() const { return targetName_; }
    // A name of the same length that no record has yet.
    const std::string& newName() const { return newName_; }
    // The payload the records were made of (and that appends write).
    const std::vector<unsigned char>& payload() const { return payload_; }

  private:
    bool readLayout();

    std::string path_;
    Scenario scenario_;
    Layout layout_;
    std::string targetName_;
    std::string newName_;
    std::vector<unsigned char> payload_;
};

std::string recordName(uint32_t index);

// The fixture for a scenario, built on first use under `workDir` and kept
// for the rest of the run; null when it could not be built.
const Fixture* fixtureFor(const Scenario& scenario, const std::string& workDir);

}  // namespace tevbench

#endif  // TEV_BENCH_FIXTURES_H
