// Throughput of the DBC and LDF readers on large generated files, in bytes
// per second: the DBC of the shared generator and a 20 MB LDF. Each raw
// import reads the whole file into a fresh Lua state (and closes it); the
// scan runs time the strict tokenising alone; the model runs time the import
// engine's tolerant readers from the file's text to their model.
#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <lua.hpp>
#include <string>

#include "GeneratedDbc.h"
#include "GeneratedFile.h"
#include "Q9Db.h"
#include "import/DbcModel.h"
#include "import/DbcScanner.h"
#include "import/TolerantLdfReader.h"
#include "import/LdfScanner.h"
#include "import/TokenCodes.h"

namespace {

using q9bench::GeneratedFile;

constexpr uint64_t kDbcSeed = 4;

std::string generateLdf(std::size_t minBytes) {
  std::string signals, frames, encodings;
  for (unsigned i = 0; signals.size() + frames.size() + encodings.size() < minBytes; ++i) {
    const std::string n = std::to_string(i);
    signals += "  Signal_" + n + ": 8, 0, Master, Slave1, Slave2;\n";
    frames += "  Frame_" + n + ": " + std::to_string(i % 60) + ", Master, 8 {\n    Signal_" + n +
              ", 0;\n  }\n";
    encodings += "  Coding_" + n + " {\n    physical_value, 0, 250, 0.5, -40, \"degC\";\n"
                 "    logical_value, 255, \"invalid\";\n  }\n";
  }
  return "LIN_description_file;\nLIN_protocol_version = \"2.1\";\nLIN_language_version = \"2.1\";\n"
         "LIN_speed = 19.2 kbps;\nNodes {\n  Master: Master, 5 ms, 0.1 ms;\n  Slaves: Slave1, Slave2;\n}\n"
         "Signals {\n" + signals + "}\nFrames {\n" + frames + "}\nNode_attributes {\n}\n"
         "Schedule_tables {\n}\nSignal_encoding_types {\n" + encodings + "}\n";
}

void runImport(benchmark::State& state, int (*import)(lua_State*, const char16_t*),
               const GeneratedFile& file) {
  const std::u16string path = file.widePath();
  for (auto _ : state) {
    lua_State* L = luaL_newstate();
    if (import(L, path.c_str()) != 1) state.SkipWithError("the import failed");
    lua_close(L);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file.size()));
}

// 2,000 messages of 16 signals, about 4 MB.
const GeneratedFile& dbcFile() {
  static const GeneratedFile file(".dbc", q9bench::generateDbc(kDbcSeed));
  return file;
}

const GeneratedFile& ldfFile() {
  static const GeneratedFile file(".ldf", generateLdf(std::size_t(20) << 20));
  return file;
}

template <typename Scanner, HRESULT (*create)(q9::platform::LexerInput*, Scanner**),
          void (*destroy)(Scanner*), int (*next)(Scanner&)>
void runScan(benchmark::State& state, const GeneratedFile& file) {
  const std::u16string path = file.widePath();
  for (auto _ : state) {
    q9::platform::LexerInput* input = nullptr;
    Scanner* scanner = nullptr;
    if (FAILED(q9::platform::openLexerInput(path.c_str(), &input)) ||
        FAILED(create(input, &scanner))) {
      state.SkipWithError("the scanner could not start");
      break;
    }
    int64_t tokens = 0;
    while (next(*scanner) != q9::kTokenEnd) ++tokens;
    benchmark::DoNotOptimize(tokens);
    destroy(scanner);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file.size()));
}

void BM_ImportDbc(benchmark::State& state) { runImport(state, Q9Db_importRawDBC, dbcFile()); }
BENCHMARK(BM_ImportDbc)->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_ScanDbc(benchmark::State& state) {
  runScan<q9::DbcScanner, q9::createDbcScanner, q9::destroyDbcScanner, q9::nextDbcToken>(state,
                                                                                       dbcFile());
}
BENCHMARK(BM_ScanDbc)->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_ImportLdf(benchmark::State& state) { runImport(state, Q9Db_importRawLDF, ldfFile()); }
BENCHMARK(BM_ImportLdf)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_ScanLdf(benchmark::State& state) {
  runScan<q9::LdfScanner, q9::createLdfScanner, q9::destroyLdfScanner, q9::nextLdfToken>(state,
                                                                                       ldfFile());
}
BENCHMARK(BM_ScanLdf)->Unit(benchmark::kMillisecond)->Iterations(3);

// From the text in memory, as the engine has it after reading the file.
template <typename Model, typename Read>
void runModel(Read read, benchmark::State& state, const GeneratedFile& file) {
  std::ifstream in(file.path(), std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  for (auto _ : state) {
    Model model;
    q9::ImportReport report(file.path());
    if (!read(text, model, report)) {
      state.SkipWithError(report.error().c_str());
      break;
    }
    benchmark::DoNotOptimize(model);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(file.size()));
}

void BM_ReadDbcModel(benchmark::State& state) { runModel<q9::DbcModel>(q9::readDbcModel, state, dbcFile()); }
BENCHMARK(BM_ReadDbcModel)->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_ReadLdfModel(benchmark::State& state) {
  runModel<q9::LdfFile>([](const std::string& text, q9::LdfFile& file, q9::ImportReport& report) {
    return q9::readLdfText(text, file, report);
  }, state, ldfFile());
}
BENCHMARK(BM_ReadLdfModel)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
