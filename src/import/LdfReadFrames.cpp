// The sections of signals and frames: Signals, Diagnostic_signals, Frames,
// Sporadic_frames, Event_triggered_frames and Diagnostic_frames.
#include "import/LdfReader.h"

namespace q9 {
namespace {

// A scalar, or a byte array whose elements keep their text.
void readInitialValue(LdfReader& r, LdfInitialValue& out) {
  if (r.accept('{')) {
    out.isArray = true;
    do {
      if (!r.at(kTokenInteger) && !r.at(kTokenNegativeInteger)) r.slip("an integer (an initial byte)");
      out.bytes.emplace_back(r.token().text);
      r.advance();
    } while (r.accept(','));
    r.expect('}');
  } else {
    out.scalar = r.integer("the initial value");
  }
}

// A frame without a length takes it from its identifier's range.
int64_t defaultFrameSize(int64_t ident) {
  const auto id = uint32_t(ident);
  if (id <= 31) return 2;
  if (id <= 47) return 4;
  if (id <= 63) return 8;
  return 2;
}

// A list of frame names behind a ':' or ',': plain names, commas optional.
void readFrameNames(LdfReader& r, std::vector<std::string>& out) {
  // A name followed by ':' starts the next entry: the ';' was left out.
  while (r.atWord() && r.peek().code != ':') {
    out.push_back(r.entryName("an associated frame"));
    r.accept(',');
  }
}

}  // namespace

void readSignalEntries(LdfReader& r, const char* section, std::vector<LdfSignalEntry>& out) {
  r.block(section, [&r, &out] {
    LdfSignalEntry entry;
    entry.at = r.token().at;
    entry.signal = r.entryName("a signal");
    r.label("the entry of " + entry.signal);
    r.expect(',');
    entry.offset = r.integer("the signal's offset");
    r.endStatement("the signal's offset");
    out.push_back(std::move(entry));
  }, LdfReader::Ends::Semicolon);
}

void readSignals(LdfReader& r) {
  r.block("Signals", [&r] {
    LdfSignal signal;
    signal.at = r.token().at;
    signal.name = r.entryName("a signal");
    r.label("signal " + signal.name);
    r.expect(':');
    signal.size = r.integer("the signal's size");
    r.expect(',');
    readInitialValue(r, signal.initial);
    r.expect(',');
    signal.publisher = r.name("the publisher");
    while (r.accept(',')) signal.subscribers.push_back(r.name("a subscriber"));
    r.endStatement(("signal " + signal.name).c_str());
    r.file.signals.push_back(std::move(signal));
  }, LdfReader::Ends::Semicolon);
}

void readDiagnosticSignals(LdfReader& r) {
  r.block("Diagnostic_signals", [&r] {
    LdfSignal signal;
    signal.at = r.token().at;
    signal.name = r.entryName("a signal");
    r.label("diagnostic signal " + signal.name);
    r.expect(':');
    signal.size = r.integer("the signal's size");
    r.expect(',');
    readInitialValue(r, signal.initial);
    r.endStatement(("signal " + signal.name).c_str());
    r.file.diagnosticSignals.push_back(std::move(signal));
  }, LdfReader::Ends::Semicolon);
}

void readFrames(LdfReader& r) {
  r.block("Frames", [&r] {
    LdfFrame frame;
    frame.at = r.token().at;
    frame.name = r.entryName("a frame");
    r.label("frame " + frame.name);
    r.expect(':');
    frame.ident = r.identifier("the frame's identifier");
    r.expect(',');
    frame.publisher = r.name("the publisher");
    frame.size = r.accept(',') ? r.integer("the frame's length") : defaultFrameSize(frame.ident);
    readSignalEntries(r, "a frame", frame.signals);
    r.file.frames.push_back(std::move(frame));
  });
}

void readSporadicFrames(LdfReader& r) {
  r.block("Sporadic_frames", [&r] {
    LdfSporadicFrame frame;
    frame.at = r.token().at;
    frame.name = r.entryName("a sporadic frame");
    r.label("sporadic frame " + frame.name);
    r.expect(':');
    do {
      frame.frames.push_back(r.name("an associated frame"));
    } while (r.accept(','));
    r.endStatement(("sporadic frame " + frame.name).c_str());
    r.file.sporadicFrames.push_back(std::move(frame));
  }, LdfReader::Ends::Semicolon);
}

void readEventTriggeredFrames(LdfReader& r) {
  r.block("Event_triggered_frames", [&r] {
    LdfEventTriggeredFrame frame;
    frame.at = r.token().at;
    frame.name = r.entryName("an event-triggered frame");
    r.label("event-triggered frame " + frame.name);
    r.expect(':');
    if (r.atWord()) {
      frame.collisionTable = r.entryName("a collision resolving schedule table");
      r.expect(',');
    }
    frame.ident = r.identifier("the frame's identifier");
    r.expect(',');
    readFrameNames(r, frame.frames);
    r.endStatement(("event-triggered frame " + frame.name).c_str());
    r.file.eventTriggeredFrames.push_back(std::move(frame));
  }, LdfReader::Ends::Semicolon);
}

void readDiagnosticFrames(LdfReader& r) {
  r.block("Diagnostic_frames", [&r] {
    LdfFrame frame;
    frame.at = r.token().at;
    frame.name = r.entryName("a diagnostic frame");
    r.label("diagnostic frame " + frame.name);
    r.expect(':');
    frame.ident = r.identifier("the frame's identifier");
    readSignalEntries(r, "a diagnostic frame", frame.signals);
    r.file.diagnosticFrames.push_back(std::move(frame));
  });
}

}  // namespace q9
