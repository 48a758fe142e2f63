// Full imports as a client makes them: Q9Db_importFile runs the filter
// scripts, which hand the file to the import engine, and a database ready to
// decode comes back. DBC files of the shared generator with 1,000 to 8,000
// messages of 16 signals (2,000 make about 3.8 MB) and a small one of the
// same kind (28 messages, about 50 KB): time of one import, bytes per second,
// and the peak memory of one import measured in a child process, alone and
// as a multiple of the file. This program links the shared library, beside
// which the scripts stand.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "GeneratedDbc.h"
#include "GeneratedFile.h"
#include "Q9Db.h"

namespace {

using q9bench::GeneratedFile;

// The raw read's file, so that the two figures compare.
constexpr uint64_t kDbcSeed = 4;
constexpr unsigned kSmallMessages = 28;

// The last report of a failed import: the host's wide text, naming what
// went wrong.
struct Failure {
  std::string text;
  static int32_t collect(void* context, const FilterReportRecord* record) {
    if (record->first == 0 && record->second == 0 && record->text) {
      std::string& out = static_cast<Failure*>(context)->text;
      out.clear();
      for (auto* c = static_cast<const char16_t*>(record->text); *c; ++c) out += *c < 0x80 ? char(*c) : '?';
    }
    return 0;
  }
};

uint64_t frameCount(Q9DbNode* db) {
  Q9DbEnumerator* frames = nullptr;
  uint64_t count = 0;
  if (Q9Db_enumFrames(db, &frames) != S_OK) return 0;
  Q9Db_enumeratorGetCount(frames, &count);
  Q9Db_enumeratorDestroy(frames);
  return count;
}

// The peak resident size of a fresh process that imports the file once, less
// that of one that only starts: the file read, the engine's work and the
// database, all at their highest. The process is this program, started anew
// with --import-peak (see main).
double importPeakKilobytes(const char* path) {
  rusage usage{};
  Q9DbNode* db = nullptr;
  Q9Db_create(u"bench", &db);
  if (path) {
    const std::string narrow(path);
    Q9Db_importFile(db, nullptr, std::u16string(narrow.begin(), narrow.end()).c_str(), nullptr, nullptr, nullptr);
  }
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_maxrss);
}

double peakOfChild(const std::string& path) {
  const std::string command = "/proc/" + std::to_string(getpid()) + "/exe --import-peak " + path;
  double kilobytes = -1;
  if (FILE* child = popen(command.c_str(), "r")) {
    if (std::fscanf(child, "%lf", &kilobytes) != 1) kilobytes = -1;
    pclose(child);
  }
  return kilobytes;
}

double peakMegabytes(const GeneratedFile& file) {
  static const double baseline = peakOfChild("");
  return (peakOfChild(file.path()) - baseline) / 1024.0;
}

void runFullImport(benchmark::State& state, const GeneratedFile& file) {
  const std::u16string path = file.widePath();
  uint64_t frames = 0;
  for (auto _ : state) {
    Q9DbNode* db = nullptr;
    Failure failure;
    const HRESULT status =
        Q9Db_create(u"bench", &db) == S_OK
            ? Q9Db_importFile(db, nullptr, path.c_str(), nullptr, &failure, &Failure::collect)
            : E_OUTOFMEMORY;
    state.PauseTiming();
    frames = status == S_OK ? frameCount(db) : 0;
    Q9Db_destroy(db);
    state.ResumeTiming();
    if (frames == 0) {
      state.SkipWithError(("the import failed: " + failure.text).c_str());
      break;
    }
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file.size()));
  state.counters["frames"] = double(frames);
  const double peak = peakMegabytes(file);
  state.counters["file_MB"] = double(file.size()) / (1024.0 * 1024.0);
  state.counters["peak_MB"] = peak;
  state.counters["peak_per_file"] = peak / (double(file.size()) / (1024.0 * 1024.0));
}

const GeneratedFile& dbcOf(unsigned messages) {
  static std::map<unsigned, std::unique_ptr<GeneratedFile>> files;
  auto& file = files[messages];
  if (!file) {
    q9bench::DbcShape shape;
    shape.messages = messages;
    file = std::make_unique<GeneratedFile>("_" + std::to_string(messages) + ".dbc",
                                           q9bench::generateDbc(kDbcSeed, shape));
  }
  return *file;
}

const GeneratedFile& smallDbc() {
  q9bench::DbcShape shape;
  shape.messages = kSmallMessages;
  static const GeneratedFile file("_small.dbc", q9bench::generateDbc(kDbcSeed, shape));
  return file;
}

void BM_ImportFileDbc(benchmark::State& state) { runFullImport(state, dbcOf(unsigned(state.range(0)))); }
// Doubling the file should double time and memory, no more.
BENCHMARK(BM_ImportFileDbc)->Unit(benchmark::kMillisecond)->Arg(1000)->Arg(2000)->Arg(4000)->Arg(8000);

void BM_ImportFileSmallDbc(benchmark::State& state) { runFullImport(state, smallDbc()); }
BENCHMARK(BM_ImportFileSmallDbc)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 2 && std::string(argv[1]) == "--import-peak") {
    std::printf("%.0f\n", importPeakKilobytes(argc >= 3 ? argv[2] : nullptr));
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
