// Full imports as a client makes them: Q9Db_importFile runs the filter
// scripts, which read a DBC file and build a database ready to decode. The
// large DBC of the shared generator (2,000 messages of 16 signals, about
// 4 MB) and a small one of the same kind (28 messages, about 50 KB). Bytes
// per second, and the time of one import. This program links the shared
// library, beside which the scripts stand.
#include <benchmark/benchmark.h>

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
}

const GeneratedFile& largeDbc() {
  static const GeneratedFile file(".dbc", q9bench::generateDbc(kDbcSeed));
  return file;
}

const GeneratedFile& smallDbc() {
  q9bench::DbcShape shape;
  shape.messages = kSmallMessages;
  static const GeneratedFile file("_small.dbc", q9bench::generateDbc(kDbcSeed, shape));
  return file;
}

void BM_ImportFileDbc(benchmark::State& state) { runFullImport(state, largeDbc()); }
// One import a repetition: each takes long enough to time alone.
BENCHMARK(BM_ImportFileDbc)->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_ImportFileSmallDbc(benchmark::State& state) { runFullImport(state, smallDbc()); }
BENCHMARK(BM_ImportFileSmallDbc)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
