// The name and text indexes as a database fills: frames made with ids in
// random order (each id interned, entered into the name index and into the
// frames collection), then looked up. Ids per second that stay flat from a
// thousand to a hundred thousand ids mean nothing grows with the count.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "Q9Db.h"

namespace {

std::vector<std::u16string> randomIds(int64_t count) {
  std::mt19937_64 rng(3);
  std::vector<std::u16string> ids;
  ids.reserve(size_t(count));
  for (int64_t i = 0; i < count; ++i) {
    // Names as description files have them: a shared stem, then digits.
    const std::string text = "Frame_" + std::to_string(rng() % 1000000007) + "_" + std::to_string(i);
    ids.emplace_back(text.begin(), text.end());
  }
  return ids;
}

Q9DbNode* fill(const std::vector<std::u16string>& ids) {
  Q9DbNode* db = nullptr;
  Q9Db_create(u"bench", &db);
  for (const auto& id : ids) {
    Q9DbNode* frame = nullptr;
    Q9Db_createFrame(db, id.c_str(), 8, &frame);
  }
  return db;
}

void BM_CreateFramesWithIds(benchmark::State& state) {
  const auto ids = randomIds(state.range(0));
  for (auto _ : state) {
    Q9DbNode* db = fill(ids);
    state.PauseTiming();
    Q9Db_destroy(db);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_CreateFramesWithIds)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_FindByElementId(benchmark::State& state) {
  const auto ids = randomIds(state.range(0));
  Q9DbNode* db = fill(ids);
  size_t next = 0;
  for (auto _ : state) {
    Q9DbNode* found = nullptr;
    benchmark::DoNotOptimize(Q9Db_findByElementId(db, ids[next].c_str(), &found));
    if (++next == ids.size()) next = 0;
  }
  state.SetItemsProcessed(state.iterations());
  Q9Db_destroy(db);
}
BENCHMARK(BM_FindByElementId)->Arg(1000)->Arg(100000);

}  // namespace

BENCHMARK_MAIN();
