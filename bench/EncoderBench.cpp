// The encoder's cycle on a generated network, as a rest-of-bus simulation
// runs it: change one signal, trigger one time step later, collect every
// frame that changed or came due. Frames collected per second.
#include <benchmark/benchmark.h>

#include "GeneratedNetwork.h"

namespace {

using q9bench::GeneratedNetwork;

constexpr uint64_t kNetworkSeed = 12;
constexpr uint64_t kChangeSeed = 7;
constexpr std::size_t kChanges = 1 << 14;  // a power of two, cycled through

struct Change {
  Q9DbNode* signal;
  uint64_t raw;
};

void BM_EncoderCycle(benchmark::State& state) {
  static const GeneratedNetwork net(kNetworkSeed);
  q9bench::Random random(kChangeSeed);
  std::vector<Change> changes(kChanges);
  for (Change& c : changes) {
    const auto& m = net.messages()[random.between(0, uint32_t(net.messages().size() - 1))];
    c = {m.signals[random.between(0, uint32_t(m.signals.size() - 1))], random.next()};
  }

  Q9DbEncoder* encoder = nullptr;
  uint32_t app = 0;
  if (Q9Db_CreateEncoder(net.database(), net.channel(), &encoder) != S_OK ||
      Q9Db_EncoderRegister(encoder, &app) != S_OK ||
      Q9Db_EncoderSetSendMode(encoder, app, Q9_ENC_MODE_PERIODIC) != S_OK) {
    state.SkipWithError("the encoder could not start");
    return;
  }
  for (const auto& m : net.messages()) Q9Db_EncoderInsert(encoder, app, m.frame);

  uint64_t time = 0;
  uint64_t collected = 0;
  std::size_t next = 0;
  Q9DbChangedFrame frame;
  for (auto _ : state) {
    const Change& c = changes[next++ & (kChanges - 1)];
    Q9Db_EncoderChangeSignal(encoder, app, c.signal, c.raw);
    Q9Db_EncoderTrigger(encoder, ++time);
    while (Q9Db_EncoderGetChangedFrame(encoder, &frame) == S_OK) ++collected;
  }
  state.counters["frames"] = benchmark::Counter(double(collected), benchmark::Counter::kIsRate);
  state.counters["changes"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
  Q9Db_DestroyEncoder(encoder);
}
BENCHMARK(BM_EncoderCycle);

}  // namespace

BENCHMARK_MAIN();
