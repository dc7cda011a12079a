// Timing of the library's editing and reading operations on real media, each
// beside the raw cost of moving the same bytes, measured in the same
// iterations. Every iteration of an edit starts from the same file: the part
// the edit changes is written back (and the file cut to its old size)
// between iterations, outside the measured time.
//
//   tev_bench [--media-dir=DIR] [--work-dir=DIR] [benchmark flags]
//
// DIR defaults: bench-data (bench.mp4, bench.jpg) and bench-data/work.
#include <benchmark/benchmark.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_system.h"
#include "fixtures.h"
#include "tev/tev.h"

namespace tevbench {
namespace {

constexpr int64_t kKiB = 1024;
constexpr int64_t kMiB = 1024 * kKiB;
// Containers at least this large get a fixed, small number of iterations so
// that the whole run stays within minutes.
constexpr int64_t kHeavyContainer = 64 * kMiB;
constexpr int kHeavyIterations = 5;
constexpr double kMinSeconds = 0.5;

struct Options {
    std::string mediaDir = "bench-data";
    std::string workDir = "bench-data/work";
};

enum class Op { kAppend, kReplace, kDelete, kExtract, kList, kListByName, kCover };

struct Case {
    Op op;
    Scenario scenario;
};

// What one benchmark times: the library call, the raw baseline, and what
// must be written back after each of them.
struct Plan {
    std::function<bool()> library;
    std::function<bool()> baseline;
    std::vector<Range> changedRanges;  // empty for read-only operations
    bool baselineEdits = false;
    // Another way to the same result, timed in the same iterations (alt_ms).
    std::function<bool()> alternative;
};

struct PackDeleter {
    void operator()(_TEV_info_pack* pack) const { destroyTEVDATA(pack); }
};
using PackPtr = std::unique_ptr<_TEV_info_pack, PackDeleter>;

struct UnitDeleter {
    void operator()(_TEV_data_unit* unit) const { destroyTEVDATA_UNIT(unit); }
};
using UnitPtr = std::unique_ptr<_TEV_data_unit, UnitDeleter>;

struct OffsetDeleter {
    void operator()(TevOffsetInfo* offset) const { DestroyOffsetInfo(offset); }
};
using OffsetPtr = std::unique_ptr<TevOffsetInfo, OffsetDeleter>;

const char* opName(Op op) {
    switch (op) {
        case Op::kAppend: return "append";
        case Op::kReplace: return "replace";
        case Op::kDelete: return "delete";
        case Op::kExtract: return "extract";
        case Op::kList: return "list";
        case Op::kListByName: return "list_by_name";
        case Op::kCover: return "cover";
    }
    return "?";
}

std::string sizeLabel(int64_t bytes) {
    return bytes >= kMiB ? std::to_string(bytes / kMiB) + "MiB" : std::to_string(bytes / kKiB) + "KiB";
}

std::string caseName(const Case& c) {
    return std::string(opName(c.op)) + "/" + c.scenario.mediaLabel + "/" + sizeLabel(c.scenario.recordSize) +
           "/" + std::to_string(c.scenario.records);
}

double secondsOf(const std::function<bool()>& work, bool* ok) {
    const auto start = std::chrono::steady_clock::now();
    *ok = work();
    const auto stop = std::chrono::steady_clock::now();
    return std::chrono::duration<double>(stop - start).count();
}

// ------------------------------------------------------------ the operations

bool saveRecord(const Fixture& fx, const std::string& name, uint32_t update) {
    const std::vector<unsigned char>& data = fx.payload();
    return saveTEVDataToFile(fx.path().c_str(), name.c_str(), static_cast<uint32_t>(name.size()), nullptr, 0,
                             data.data(), static_cast<uint32_t>(data.size()), kRecordType,
                             update) == LUMET_TEV_TRUE;
}

bool deleteRecord(const Fixture& fx) {
    const std::string& name = fx.targetName();
    return deleteTEVDataFromFile(fx.path().c_str(), name.c_str(), static_cast<uint32_t>(name.size())) ==
           LUMET_TEV_TRUE;
}

bool extractRecord(const Fixture& fx) {
    PackPtr pack(checkTEVWithReadPM(fx.path().c_str()));
    if (!pack) return false;
    const std::string& name = fx.targetName();
    UnitPtr unit(extractTEVDataFromFilebyName(pack.get(), name.c_str(), static_cast<uint32_t>(name.size())));
    return unit && unit->data_length == fx.payload().size() &&
           std::memcmp(unit->data, fx.payload().data(), fx.payload().size()) == 0;
}

// Name, type and data position of every record, each by index.
bool listRecords(const Fixture& fx) {
    PackPtr pack(checkTEVWithReadPM(fx.path().c_str()));
    if (!pack) return false;
    const unsigned int count = GetTevCount(pack.get());
    int64_t positions = 0;
    for (unsigned int i = 0; i < count; ++i) {
        const char* name = GetNameInList(pack.get(), static_cast<int>(count), static_cast<int>(i));
        OffsetPtr data(getTEVInFileByIndex(pack.get(), i));
        const uint32_t type = pack->info->meta_data[i]->meta_type >> 16;
        if (name == nullptr || !data || type != kRecordType) return false;
        positions += data->position;
    }
    benchmark::DoNotOptimize(positions);
    return count == fx.scenario().records;
}

// The same listing through the by-name queries (type and position looked up
// by each record's name), as a caller holding only names would do it.
bool listRecordsByName(const Fixture& fx) {
    PackPtr pack(checkTEVWithReadPM(fx.path().c_str()));
    if (!pack) return false;
    const unsigned int count = GetTevCount(pack.get());
    int64_t positions = 0;
    for (unsigned int i = 0; i < count; ++i) {
        const char* name = GetNameInList(pack.get(), static_cast<int>(count), static_cast<int>(i));
        if (name == nullptr || getTEVDataType(pack.get(), name) != kRecordType) return false;
        OffsetPtr data(getTEVInFileByName(pack.get(), name));
        if (!data) return false;
        positions += data->position;
    }
    benchmark::DoNotOptimize(positions);
    return count == fx.scenario().records;
}

// The new media of the cover case: the fixture's media 4 KiB shorter, as a
// re-encoded photo of about the same size would be.
constexpr int64_t kCoverShrink = 4 * kKiB;

std::shared_ptr<std::vector<unsigned char>> coverMedia(const Fixture& fx) {
    auto media = std::make_shared<std::vector<unsigned char>>();
    FILE* fp = std::fopen(fx.scenario().mediaPath.c_str(), "rb");
    if (fp == nullptr) return media;
    media->resize(static_cast<size_t>(fx.layout().dataStart - kCoverShrink));
    if (std::fread(media->data(), 1, media->size(), fp) != media->size()) media->clear();
    std::fclose(fp);
    return media;
}

// The way without the in-place replacement: the new media into a new file,
// every record copied across, the new file renamed over the old one.
bool coverByCopy(const Fixture& fx, const std::vector<unsigned char>& media) {
    const std::string fresh = fx.path() + ".new";
    FILE* fp = std::fopen(fresh.c_str(), "wb");
    if (fp == nullptr) return false;
    const bool written = std::fwrite(media.data(), 1, media.size(), fp) == media.size();
    if (std::fclose(fp) != 0 || !written) return false;
    const bool copied = copyTEVData(fx.path().c_str(), fresh.c_str()) == LUMET_TEV_TRUE;
    std::remove(fresh.c_str());  // the fixture stays for the next iteration
    return copied;
}

// ------------------------------------------------------------ the plans

// Appends and replaces change the box header in front of the container (on
// MP4) and everything from the old directory on; deletes rewrite the whole
// container.
std::vector<Range> directoryRanges(const Layout& layout) {
    constexpr int64_t kBoxHeaderRange = 16;
    return {{layout.dataStart, kBoxHeaderRange}, {layout.directory, layout.fileSize - layout.directory}};
}

// The bytes an append writes from the old directory's first byte on (the
// record plus the new directory), found by appending once and restoring.
int64_t appendedBytes(const Fixture& fx) {
    static std::map<std::string, int64_t> measured;
    auto found = measured.find(fx.path());
    if (found != measured.end()) return found->second;
    const Layout& layout = fx.layout();
    FileSnapshot snapshot;
    int64_t bytes = -1;
    if (snapshot.capture(fx.path(), directoryRanges(layout)) &&
        saveRecord(fx, fx.newName(), 0)) {
        bytes = fileSize(fx.path()) - layout.directory;
    }
    if (!snapshot.restore()) bytes = -1;
    measured.emplace(fx.path(), bytes);
    return bytes;
}

std::vector<Range> listRanges(const Layout& layout) {
    std::vector<Range> ranges{{layout.directory, layout.fileSize - layout.directory}};
    ranges.insert(ranges.end(), layout.recordHeads.begin(), layout.recordHeads.end());
    return ranges;
}

// Where the record the edits work on lies, and how many bytes of records
// lie behind it (up to the directory).
struct Target {
    int64_t start;
    int64_t end;
    int64_t behind;
};

Target targetOf(const Layout& layout) {
    const size_t index = layout.recordHeads.size() / 2;
    const int64_t start = layout.recordHeads.at(index).position;
    const int64_t end = layout.targetData.position + layout.targetData.length;
    return {start, end, layout.directory - end};
}

bool planFor(Op op, const Fixture& fx, Plan* plan) {
    const Layout& layout = fx.layout();
    const std::string path = fx.path();
    switch (op) {
        case Op::kAppend: {
            const int64_t bytes = appendedBytes(fx);
            if (bytes <= 0) return false;
            auto written = std::make_shared<std::vector<unsigned char>>(fx.payload());
            written->resize(static_cast<size_t>(bytes));
            plan->library = [&fx] { return saveRecord(fx, fx.newName(), 0); };
            plan->baseline = [path, written, at = layout.directory] { return rawWriteAt(path, at, *written); };
            plan->changedRanges = directoryRanges(layout);
            plan->baselineEdits = true;
            return true;
        }
        case Op::kReplace: {
            // The least a replace must write: the R bytes of records behind the
            // old one, moved over it, then the new record and directory.
            const int64_t bytes = appendedBytes(fx);
            if (bytes <= 0) return false;
            const Target target = targetOf(layout);
            auto written = std::make_shared<std::vector<unsigned char>>(fx.payload());
            written->resize(static_cast<size_t>(target.behind + bytes));
            plan->library = [&fx] { return saveRecord(fx, fx.targetName(), 1); };
            plan->baseline = [path, written, at = target.start] { return rawWriteAt(path, at, *written); };
            plan->changedRanges = {{layout.dataStart, fx.containerSize()}};
            plan->baselineEdits = true;
            return true;
        }
        case Op::kDelete: {
            // The least a delete must do: move the R bytes behind the record
            // over it and cut the file.
            const Target target = targetOf(layout);
            const int64_t cut = layout.fileSize - (target.end - target.start);
            plan->library = [&fx] { return deleteRecord(fx); };
            plan->baseline = [path, target, cut] {
                return rawMoveAndCut(path, target.end, target.start, target.behind, cut);
            };
            plan->changedRanges = {{layout.dataStart, fx.containerSize()}};
            plan->baselineEdits = true;
            return true;
        }
        case Op::kExtract:
            plan->library = [&fx] { return extractRecord(fx); };
            plan->baseline = [path, data = layout.targetData] {
                return rawReadAt(path, data.position, data.length);
            };
            return true;
        case Op::kCover: {
            // The least a replacement must write: the new media, once.
            auto media = coverMedia(fx);
            if (media->empty()) return false;
            plan->library = [&fx, media] {
                return FastChangeCoverData(fx.path().c_str(), media->data(),
                                           static_cast<uint32_t>(media->size())) == LUMET_TEV_TRUE;
            };
            plan->baseline = [path, media] { return rawWriteAt(path, 0, *media); };
            plan->alternative = [&fx, media] { return coverByCopy(fx, *media); };
            plan->changedRanges = {{0, layout.fileSize}};
            plan->baselineEdits = true;
            return true;
        }
        case Op::kList:
        case Op::kListByName:
            plan->library = [&fx, op] { return op == Op::kList ? listRecords(fx) : listRecordsByName(fx); };
            plan->baseline = [path, ranges = listRanges(layout)] { return rawReadRanges(path, ranges); };
            return true;
    }
    return false;
}

// ------------------------------------------------------------ the runner

struct Totals {
    double librarySeconds = 0;
    double baselineSeconds = 0;
    IoCounters library;
    IoCounters baseline;
    double alternativeSeconds = 0;
    int64_t iterations = 0;
};

void addIo(IoCounters* sum, const IoCounters& before, const IoCounters& after) {
    sum->readBytes += after.readBytes - before.readBytes;
    sum->writtenBytes += after.writtenBytes - before.writtenBytes;
}

// Peak memory of one library call, measured once per case.
PeakMemory peakMemoryFor(const std::string& name, const Plan& plan, const FileSnapshot* snapshot) {
    static std::map<std::string, PeakMemory> measured;
    auto found = measured.find(name);
    if (found != measured.end()) return found->second;
    const PeakMemory peak = peakMemoryOf(plan.library);
    if (snapshot != nullptr && !snapshot->restore()) return {};
    measured.emplace(name, peak);
    return peak;
}

void setCounters(benchmark::State& state, const Fixture& fx, const Totals& t, const PeakMemory& peak) {
    const double n = static_cast<double>(t.iterations);
    state.counters["base_ms"] = t.baselineSeconds / n * 1e3;
    state.counters["ratio"] = t.librarySeconds / t.baselineSeconds;
    state.counters["read_B"] = static_cast<double>(t.library.readBytes) / n;
    state.counters["written_B"] = static_cast<double>(t.library.writtenBytes) / n;
    state.counters["base_read_B"] = static_cast<double>(t.baseline.readBytes) / n;
    state.counters["base_written_B"] = static_cast<double>(t.baseline.writtenBytes) / n;
    state.counters["peak_heap_B"] = static_cast<double>(peak.heap);
    state.counters["peak_rss_B"] = static_cast<double>(peak.resident);
    state.counters["container_B"] = static_cast<double>(fx.containerSize());
    state.counters["media_B"] = static_cast<double>(fx.layout().dataStart);
    state.counters["record_B"] = static_cast<double>(fx.scenario().recordSize);
    state.counters["records"] = static_cast<double>(fx.scenario().records);
    if (t.alternativeSeconds > 0) state.counters["alt_ms"] = t.alternativeSeconds / n * 1e3;
}

void runCase(benchmark::State& state, const Case& c, const Options& options) {
    const Fixture* fx = fixtureFor(c.scenario, options.workDir);
    Plan plan;
    if (fx == nullptr || !planFor(c.op, *fx, &plan)) {
        state.SkipWithError("the fixture could not be built");
        return;
    }
    FileSnapshot snapshot;
    const bool edits = !plan.changedRanges.empty();
    if (edits && !snapshot.capture(fx->path(), plan.changedRanges)) {
        state.SkipWithError("the fixture could not be read");
        return;
    }
    const PeakMemory peak = peakMemoryFor(caseName(c), plan, edits ? &snapshot : nullptr);
    Totals totals;
    for (auto _ : state) {
        bool baselineOk = false;
        bool libraryOk = false;
        IoCounters before = readIoCounters();
        totals.baselineSeconds += secondsOf(plan.baseline, &baselineOk);
        addIo(&totals.baseline, before, readIoCounters());
        const bool cleanBaseline = !plan.baselineEdits || snapshot.restore();
        before = readIoCounters();
        const double seconds = secondsOf(plan.library, &libraryOk);
        addIo(&totals.library, before, readIoCounters());
        state.SetIterationTime(seconds);
        totals.librarySeconds += seconds;
        ++totals.iterations;
        const bool restored = !edits || snapshot.restore();
        bool alternativeOk = true;
        if (plan.alternative) totals.alternativeSeconds += secondsOf(plan.alternative, &alternativeOk);
        if (!baselineOk || !libraryOk || !cleanBaseline || !restored || !alternativeOk) {
            state.SkipWithError(!libraryOk ? "the library call failed" : "the baseline or restore failed");
            break;
        }
    }
    if (totals.iterations > 0) setCounters(state, *fx, totals, peak);
}

// ------------------------------------------------------------ the cases

std::vector<Scenario> scenarios(const Options& options) {
    const std::string mp4 = options.mediaDir + "/bench.mp4";
    const std::string jpeg = options.mediaDir + "/bench.jpg";
    return {
        {"mp4", mp4, kKiB, 1},        {"mp4", mp4, kKiB, 100},       {"mp4", mp4, kKiB, 5000},
        {"mp4", mp4, kMiB, 1},        {"mp4", mp4, kMiB, 10},        {"mp4", mp4, kMiB, 100},
        {"mp4", mp4, 64 * kMiB, 1},   {"mp4", mp4, 64 * kMiB, 3},    {"jpeg", jpeg, kKiB, 1},
        {"jpeg", jpeg, kKiB, 100},    {"jpeg", jpeg, kKiB, 5000},    {"jpeg", jpeg, kMiB, 10},
        {"jpeg", jpeg, 64 * kMiB, 1},
    };
}

constexpr uint32_t kManyRecords = 5000;

// The media replacement runs on the large photo with 10 MiB of records.
bool isCoverScenario(const Scenario& s) {
    return s.mediaLabel == "jpeg" && s.recordSize == kMiB && s.records == 10;
}

void registerCases(const Options& options) {
    static std::vector<std::unique_ptr<Case>> cases;
    for (const Scenario& scenario : scenarios(options)) {
        for (Op op : {Op::kAppend, Op::kReplace, Op::kDelete, Op::kExtract, Op::kList, Op::kListByName,
                      Op::kCover}) {
            if (op == Op::kListByName && scenario.records != kManyRecords) continue;
            if (op == Op::kCover && !isCoverScenario(scenario)) continue;
            cases.push_back(std::make_unique<Case>(Case{op, scenario}));
            const Case* c = cases.back().get();
            benchmark::internal::Benchmark* b = benchmark::RegisterBenchmark(
                caseName(*c).c_str(), [c, options](benchmark::State& state) { runCase(state, *c, options); });
            b->UseManualTime()->Unit(benchmark::kMillisecond);
            if (scenario.recordSize * scenario.records >= kHeavyContainer) {
                b->Iterations(kHeavyIterations);
            } else {
                b->MinTime(kMinSeconds);
            }
        }
    }
}

// Takes --media-dir= and --work-dir= out of argv before the benchmark
// library sees the rest.
Options takeOwnFlags(int* argc, char** argv) {
    Options options;
    int kept = 1;
    for (int i = 1; i < *argc; ++i) {
        const char* arg = argv[i];
        if (std::strncmp(arg, "--media-dir=", 12) == 0) {
            options.mediaDir = arg + 12;
        } else if (std::strncmp(arg, "--work-dir=", 11) == 0) {
            options.workDir = arg + 11;
        } else {
            argv[kept++] = argv[i];
        }
    }
    *argc = kept;
    return options;
}

}  // namespace
}  // namespace tevbench

int main(int argc, char** argv) {
    using namespace tevbench;
    const Options options = takeOwnFlags(&argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    for (const char* media : {"/bench.mp4", "/bench.jpg"}) {
        if (fileSize(options.mediaDir + media) <= 0) {
            std::fprintf(stderr, "missing %s%s (run scripts/make-bench-media.sh)\n",
                         options.mediaDir.c_str(), media);
            return 1;
        }
    }
    mkdir(options.workDir.c_str(), 0755);
    benchmark::AddCustomContext("peak_memory_method",
                                "forked child: live malloc bytes counted exactly; "
                                "VmHWM after minus VmRSS before (clear_refs 5, fixed mmap threshold)");
    benchmark::AddCustomContext("io_counters", "/proc/self/io rchar and wchar deltas per iteration");
    registerCases(options);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
