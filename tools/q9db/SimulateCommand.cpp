// q9db simulate: the sending side of the CAN channels, as the frame encoder
// drives it, written as a capture in the log form. A restbus script may
// change each payload before it goes out.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "Commands.h"
#include "DescribedFrames.h"
#include "FrameType.h"
#include "LogLine.h"
#include "Network.h"
#include "Nodes.h"
#include "RestbusScript.h"
#include "SignalSetting.h"

namespace q9tool {
namespace {

constexpr size_t kClassicLength = 8;
constexpr size_t kLongestPayload = 64;
// The encoder's clock starts past every cycle time, so that each cyclic
// frame goes out at the first step, as a bus does after power-up, and then
// once per cycle.
constexpr uint64_t kClockStart = uint64_t(1) << 32;

struct SentFrame {
  Q9DbNode* frame;
  std::string name;
  uint32_t identifier;
  uint32_t flags;
  uint64_t sends = 0;
};

// The bus sends what waits together by identifier: the 11 bits of a
// standard identifier against the top 11 of an extended one, and on a tie
// the standard frame first.
uint64_t arbitrationKey(const SentFrame& frame) {
  if (sentExtended(frame.identifier, frame.flags)) return uint64_t(frame.identifier) << 1 | 1;
  return uint64_t(frame.identifier) << 19;
}

// The frames of the CAN channels, each once, with its first triggering by
// identifier (a masked triggering answers many identifiers and names none
// to send). A classic frame longer than 8 bytes can't be written; it is
// reported and left out.
std::vector<SentFrame> canFrames(const Network& network) {
  std::vector<SentFrame> frames;
  std::unordered_set<Q9DbNode*> seen;
  const DescribedFrames index(network.canChannels());
  for (const DescribedFrame& described : index.all()) {
    if (described.mask != ~0u || !seen.insert(described.frame).second) continue;
    int32_t length = described.length;
    if (length < 0 || (!described.fd() && size_t(length) > kClassicLength) ||
        (described.fd() && canFdLength(size_t(length)) == 0)) {
      std::fprintf(stderr, "q9db: warning: frame %s has %d bytes, more than its frame type carries; it is not sent\n",
                   described.name.c_str(), length);
      continue;
    }
    frames.push_back({described.frame, described.name, described.identifier, described.flags});
  }
  return frames;
}

// A --set resolved: the signal and its raw value.
struct RawSetting {
  Q9DbNode* signal;
  uint64_t raw;
};

bool resolveSetting(Q9DbNode* db, const std::vector<SentFrame>& frames, const std::string& text, RawSetting& out) {
  SignalSetting setting;
  std::string problem;
  if (parseSignalSetting(text, setting, problem)) {
    auto frame = std::find_if(frames.begin(), frames.end(), [&](const SentFrame& f) { return f.name == setting.frame; });
    if (frame == frames.end()) {
      problem = "no CAN frame is named " + setting.frame;
    } else {
      out.signal = nullptr;
      for (Q9DbNode* signal : frameSignals(frame->frame))
        if (displayName(signal) == setting.signal) out.signal = signal;
      if (!out.signal) problem = "frame " + setting.frame + " has no signal named " + setting.signal;
      else if (rawValueFor(db, out.signal, setting.value, out.raw, problem)) return true;
    }
  }
  std::fprintf(stderr, "q9db: --set %s: %s\n", text.c_str(), problem.c_str());
  return false;
}

class Encoder {
 public:
  explicit Encoder(Q9DbNode* db) { status_ = Q9Db_CreateEncoder(db, nullptr, &handle_); }
  ~Encoder() { Q9Db_DestroyEncoder(handle_); }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;
  HRESULT status() const { return status_; }
  Q9DbEncoder* get() const { return handle_; }

 private:
  Q9DbEncoder* handle_ = nullptr;
  HRESULT status_;
};

struct Waiting {
  SentFrame* frame;
  const uint8_t* data;
  size_t length;
};

// The script's file run, or null without --script; false after reporting
// why it can't run, or when it ended the simulation already (its status in
// exitStatus()).
bool loadScript(const SimulateOptions& options, Q9DbNode* db, std::unique_ptr<RestbusScript>& script) {
  if (options.script.empty()) return true;
  script = std::make_unique<RestbusScript>(db);
  std::string problem;
  if (!script->load(options.script, problem)) {
    if (!script->exitStatus()) std::fprintf(stderr, "q9db: %s\n", problem.c_str());
    return false;
  }
  if (!script->definesBeforeSend())
    std::fprintf(stderr, "q9db: warning: %s defines no function before_send; frames go out as the encoder makes them\n",
                 options.script.c_str());
  return true;
}

}  // namespace

int runSimulate(const SimulateOptions& options) {
  Network network;
  if (!importFiles(network, options.files, options.import)) return kExitInputError;
  // The script's setup may still change the database; the encoder then
  // works on it as it is.
  std::unique_ptr<RestbusScript> script;
  if (!loadScript(options, network.db(), script)) return script ? script->exitStatus().value_or(kExitInputError) : kExitInputError;
  std::vector<SentFrame> frames = canFrames(network);
  if (frames.empty()) {
    std::fprintf(stderr, "q9db: no CAN frame to send in %s\n",
                 options.files.size() == 1 ? options.files[0].c_str() : "the files");
    return kExitInputError;
  }
  std::vector<RawSetting> settings(options.settings.size());
  for (size_t i = 0; i < settings.size(); ++i)
    if (!resolveSetting(network.db(), frames, options.settings[i], settings[i])) return kExitInputError;

  Encoder encoder(network.db());
  uint32_t app = 0;
  HRESULT status = encoder.status();
  if (SUCCEEDED(status)) status = Q9Db_EncoderRegister(encoder.get(), &app);
  if (SUCCEEDED(status)) status = Q9Db_EncoderSetSendMode(encoder.get(), app, Q9_ENC_MODE_PERIODIC);
  if (FAILED(status)) {
    std::fprintf(stderr, "q9db: the frame encoder could not be set up (status 0x%08X)\n", unsigned(status));
    return kExitInputError;
  }
  std::unordered_map<Q9DbNode*, SentFrame*> byNode;
  for (SentFrame& frame : frames) {
    Q9Db_EncoderInsert(encoder.get(), app, frame.frame);
    byNode.emplace(frame.frame, &frame);
  }
  for (size_t i = 0; i < settings.size(); ++i) {
    HRESULT changed = Q9Db_EncoderChangeSignal(encoder.get(), app, settings[i].signal, settings[i].raw);
    if (changed != S_OK) {
      std::fprintf(stderr, "q9db: --set %s: the encoder can't send this signal (%s)\n", options.settings[i].c_str(),
                   changed == Q9_ENC_NO_MATCH ? "its PDU is sent in no frame" : "it has no coding");
      return kExitInputError;
    }
  }

  Output out(STDOUT_FILENO);
  const uint64_t endMilliseconds = static_cast<uint64_t>(std::llround(options.duration * 1e3));
  std::vector<Waiting> waiting;
  for (uint64_t now = 0; now < endMilliseconds && out.good(); now += options.stepMilliseconds) {
    Q9Db_EncoderTrigger(encoder.get(), kClockStart + now);
    waiting.clear();
    Q9DbChangedFrame changed{};
    // The images stay as they are until the next trigger.
    while (Q9Db_EncoderGetChangedFrame(encoder.get(), &changed) == S_OK) {
      auto found = byNode.find(changed.frame);
      if (found != byNode.end()) waiting.push_back({found->second, changed.data, size_t(changed.size)});
    }
    std::stable_sort(waiting.begin(), waiting.end(), [](const Waiting& a, const Waiting& b) {
      return arbitrationKey(*a.frame) < arbitrationKey(*b.frame);
    });
    for (const Waiting& w : waiting) {
      const uint64_t microseconds = options.startMicroseconds + now * 1000;
      // The script changes a copy: the encoder's image stays as the encoder made it.
      uint8_t payload[kLongestPayload];
      const size_t length = std::min(w.length, sizeof payload);
      std::memcpy(payload, w.data, length);
      if (script) {
        OutgoingFrame outgoing{w.frame->frame, &w.frame->name, w.frame->identifier,
                               sentExtended(w.frame->identifier, w.frame->flags), (w.frame->flags & Q9_FLAG_CANFD_FRAME) != 0,
                               microseconds, w.frame->sends, payload, length};
        std::string problem;
        if (!script->beforeSend(outgoing, problem)) {
          out.flush();  // what went out before stays a valid capture
          if (std::optional<int> exit = script->exitStatus()) return *exit;
          std::fprintf(stderr, "q9db: sending %s at %" PRIu64 ".%06" PRIu64 ": %s\n", w.frame->name.c_str(),
                       microseconds / 1000000, microseconds % 1000000, problem.c_str());
          return kExitInputError;
        }
      }
      ++w.frame->sends;
      writeLogLine(out, {microseconds, options.interface, w.frame->identifier, w.frame->flags, payload, length});
    }
  }
  // A reader that went away (head, a closed pipe) is no error of ours.
  if (!out.flush() && out.error() != EPIPE) {
    std::fprintf(stderr, "q9db: standard output: %s\n", std::strerror(out.error()));
    return kExitInputError;
  }
  return kExitOk;
}

}  // namespace q9tool
