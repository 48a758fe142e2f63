// Decoding throughput on a generated network: random received frames walked
// as a client walks them (message, frame triggerings, signals), with and
// without the physical value of every signal, and decoded whole into an
// array of records, a frame or a batch of frames per call. Frames and
// signals per second.
#include <benchmark/benchmark.h>

#include <map>
#include <memory>

#include "GeneratedNetwork.h"

namespace {

using q9bench::GeneratedNetwork;
using q9bench::ReceivedFrame;

constexpr uint64_t kNetworkSeed = 12;
constexpr uint64_t kFrameSeed = 2026;
constexpr std::size_t kFrames = 1 << 16;  // a power of two, cycled through

// The network of the given size, with its received frames; 400 messages is
// the realistic case, 16 keeps the whole database in the nearer caches and
// shows what the walk costs without waiting for memory.
struct Workload {
  GeneratedNetwork network;
  std::vector<ReceivedFrame> frames;
  explicit Workload(unsigned messages)
      : network(kNetworkSeed, shapeOf(messages)), frames(network.receivedFrames(kFrames, kFrameSeed)) {}
  static q9bench::NetworkShape shapeOf(unsigned messages) {
    q9bench::NetworkShape shape;
    shape.messages = messages;
    return shape;
  }
};

const Workload& workload(unsigned messages) {
  static std::map<unsigned, std::unique_ptr<Workload>> all;
  auto& w = all[messages];
  if (!w) w = std::make_unique<Workload>(messages);
  return *w;
}

// With changeEvery > 0 the database changes after every so many frames, and
// the decoder compiles what it meets again.
template <bool physical>
void runDecode(benchmark::State& state, std::size_t changeEvery = 0) {
  const Workload& w = workload(unsigned(state.range(0)));
  Q9DbNode* channel = w.network.channel();
  const std::vector<ReceivedFrame>& received = w.frames;
  // The caller-owned form: the walk lives in the client's memory.
  auto walk = std::make_unique<Q9DbDecodeEnum>();
  Q9DbDecodeEnum* e = walk.get();
  char text[64];
  Q9DbDecodedSignal s{};
  s.textBuffer = text;
  s.textCapacity = sizeof text;
  uint64_t signals = 0;
  std::size_t next = 0;
  for (auto _ : state) {
    if (changeEvery && next % changeEvery == 0) Q9Db_setParam(channel, next);
    const ReceivedFrame& f = received[next++ & (kFrames - 1)];
    Q9Db_decodeMessage(channel, f.identifier, f.flags, f.length, f.payload, &e);
    while (SUCCEEDED(Q9Db_decodeNextFrametriggering(e, nullptr))) {
      HRESULT kind;
      while (SUCCEEDED(kind = Q9Db_decodeNextSignal(e, nullptr, &s))) {
        ++signals;
        if constexpr (physical) {
          Q9DbPhysicalValue v;
          if (kind == Q9_NUMERICSIGNAL) Q9Db_internalToPhysical(s.signal, s.value, &v);
          benchmark::DoNotOptimize(v);
        } else {
          benchmark::DoNotOptimize(s.value);
        }
      }
    }
  }
  state.counters["frames"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["signals"] = benchmark::Counter(double(signals), benchmark::Counter::kIsRate);
}

void BM_DecodePhysical(benchmark::State& state) { runDecode<true>(state); }
BENCHMARK(BM_DecodePhysical)->ArgName("messages")->Arg(400)->Arg(16);

void BM_DecodeRaw(benchmark::State& state) { runDecode<false>(state); }
BENCHMARK(BM_DecodeRaw)->ArgName("messages")->Arg(400)->Arg(16);

// What a change costs the decoder: every change takes away what it compiled.
void BM_DecodePhysicalChanging(benchmark::State& state) { runDecode<true>(state, std::size_t(state.range(1))); }
BENCHMARK(BM_DecodePhysicalChanging)->ArgNames({"messages", "framesPerChange"})->Args({400, 4096})->Args({400, 65536});

// Room for the records of the largest frame of the network, or of a batch.
constexpr uint32_t kRecordRoom = 4096;

// A frame per call, every signal with its physical value.
void BM_DecodeWholeFrame(benchmark::State& state) {
  const Workload& w = workload(unsigned(state.range(0)));
  Q9DbNode* channel = w.network.channel();
  std::vector<Q9DbSignalRecord> records(kRecordRoom);
  uint64_t signals = 0;
  std::size_t next = 0;
  for (auto _ : state) {
    const ReceivedFrame& f = w.frames[next++ & (kFrames - 1)];
    uint32_t count = 0;
    Q9Db_decodeFrame(channel, f.identifier, f.flags, f.length, f.payload, records.data(), kRecordRoom, &count);
    signals += count;
    benchmark::DoNotOptimize(records.data());
    benchmark::ClobberMemory();
  }
  state.counters["frames"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["signals"] = benchmark::Counter(double(signals), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_DecodeWholeFrame)->ArgName("messages")->Arg(400)->Arg(16);

// Batches of frames per call, as a capture is read.
void BM_DecodeWholeFrames(benchmark::State& state) {
  const Workload& w = workload(unsigned(state.range(0)));
  const uint32_t batch = uint32_t(state.range(1));
  Q9DbNode* channel = w.network.channel();
  std::vector<Q9DbMessage> messages;
  for (const ReceivedFrame& f : w.frames) messages.push_back({f.identifier, f.flags, f.length, f.payload});
  std::vector<Q9DbSignalRecord> records(kRecordRoom);
  uint64_t frames = 0, signals = 0;
  std::size_t next = 0;
  for (auto _ : state) {
    uint32_t decoded = 0, count = 0;
    Q9Db_decodeFrames(channel, &messages[next], batch, records.data(), kRecordRoom, &decoded, &count);
    next = (next + decoded) & (kFrames - 1);
    if (next + batch > kFrames) next = 0;
    frames += decoded;
    signals += count;
    benchmark::DoNotOptimize(records.data());
    benchmark::ClobberMemory();
  }
  state.counters["frames"] = benchmark::Counter(double(frames), benchmark::Counter::kIsRate);
  state.counters["signals"] = benchmark::Counter(double(signals), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_DecodeWholeFrames)->ArgNames({"messages", "batch"})->Args({400, 64});

}  // namespace

BENCHMARK_MAIN();
