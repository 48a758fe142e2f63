// q9db decode: a capture in the Linux CAN tools' text forms, frame by frame.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "BusBinding.h"
#include "Commands.h"
#include "FrameDecoder.h"
#include "FrameLine.h"
#include "Io.h"
#include "LogLine.h"
#include "ProblemReports.h"
#include "Progress.h"

namespace q9tool {
namespace {

// Timestamps from the first frame or the one before, written in place of
// the logged ones (seconds with six decimals, as logged).
class TimestampRewriter {
 public:
  explicit TimestampRewriter(Timestamps mode) : mode_(mode) {}
  void rewrite(CanFrame& frame) {
    uint64_t now = 0;
    if (mode_ == Timestamps::Absolute || frame.timestamp.empty() || !parseTimestamp(frame.timestamp, now)) return;
    if (!started_) first_ = previous_ = now, started_ = true;
    uint64_t from = mode_ == Timestamps::FromFirst ? first_ : previous_;
    previous_ = now;
    uint64_t elapsed = now >= from ? now - from : 0;  // a log out of order shows 0, not a wrapped number
    char* end = std::to_chars(text_, text_ + 24, elapsed / 1000000).ptr;
    *end++ = '.';
    uint64_t micro = elapsed % 1000000;
    for (int i = 5; i >= 0; --i, micro /= 10) end[i] = char('0' + micro % 10);
    frame.timestamp = std::string_view(text_, static_cast<size_t>(end + 6 - text_));
  }

 private:
  Timestamps mode_;
  bool started_ = false;
  uint64_t first_ = 0, previous_ = 0;
  char text_[32];
};

char hexDigit(unsigned v) { return "0123456789ABCDEF"[v & 0xF]; }

std::string identifierText(const CanFrame& frame) {
  int digits = (frame.flags & Q9_FLAG_CANEXTENDED) ? 8 : 3;
  std::string text(size_t(digits), '0');
  uint32_t id = frame.identifier;
  for (int i = digits - 1; i >= 0; --i, id >>= 4) text[size_t(i)] = hexDigit(id);
  return text;
}

}  // namespace

int runDecode(const DecodeOptions& options) {
  DecoderSettings settings;
  settings.showUnknown = options.showUnknown;
  settings.j1939 = options.j1939;
  std::string problem;
  if (!settings.filter.set(options.filters, problem)) {
    std::fprintf(stderr, "q9db: --id: %s\n", problem.c_str());
    return kExitUsageError;
  }
  Network network;
  BusChannels buses;
  if (int status = openBuses("decode", options.files, options.bindings, options.import, network, buses)) return status;
  DescribedFrames described(buses.allChannels());

  CaptureFile capture;
  if (!capture.open(options.log)) return kExitInputError;
  const std::string& logName = capture.name();

  int status = kExitOk;
  {
    Output out(STDOUT_FILENO);
    FrameWriter writer(out, options.format, options.raw);
    FrameDecoder decoder(network.db(), described, writer, std::move(settings));
    InputStream input(capture.fd());
    LineReader reader(input, &out);
    Progress progress(capture.fd());
    ProblemReports problems(logName, options.maxReports, options.import.quiet);
    TimestampRewriter timestamps(options.timestamps);
    std::vector<std::string> unboundTold;
    unsigned long long unknown = 0, noData = 0;
    writer.begin();
    CanFrame frame;
    std::string_view line;
    while (reader.next(line) && out.good()) {
      LineResult result = parseFrameLine(line, frame);
      if (result.kind == LineKind::Frame) {
        const std::vector<Q9DbNode*>* onBus = buses.channelsFor(frame.interface);
        if (!onBus) {
          bool told = std::find(unboundTold.begin(), unboundTold.end(), frame.interface) != unboundTold.end();
          if (!told) unboundTold.emplace_back(frame.interface);
          out.flush();
          problems.report(Problem::UnboundBus, reader.lineNumber(),
                          std::string(frame.interface) + ": no description is bound to this bus; its frames are passed over",
                          !told);
          continue;
        }
        timestamps.rewrite(frame);
        Mismatch mismatch{};
        Outcome outcome = decoder.decode(frame, *onBus, mismatch);
        if (outcome == Outcome::Unknown) ++unknown;
        if (outcome == Outcome::NotDecoded) {
          out.flush();  // keep the report next to the frames around it
          Problem kind = mismatch.kind == Mismatch::Length           ? Problem::LengthMismatch
                         : mismatch.kind == Mismatch::IdentifierType ? Problem::IdentifierType
                                                                     : Problem::FormMismatch;
          problems.report(kind, reader.lineNumber(),
                          identifierText(frame) + " not decoded: " + describeMismatch(frame, mismatch));
        }
      } else if (result.kind == LineKind::NoData) {
        ++noData;
      } else if (result.kind == LineKind::Malformed) {
        out.flush();
        problems.report(Problem::MalformedLine, reader.lineNumber(),
                        malformedLineText(result.problem, line));
        status = kExitInputError;
      }
      progress.update(reader);
    }
    if (reader.failed()) {
      std::fprintf(stderr, "q9db: %s: read error after line %llu: %s\n", logName.c_str(), reader.lineNumber(),
                   reader.error().c_str());
      status = kExitInputError;
    }
    out.flush();
    if (!out.good() && out.error() != EPIPE) {  // a reader that went away (head) is no error of ours
      std::fprintf(stderr, "q9db: standard output: %s\n", std::strerror(out.error()));
      status = kExitInputError;
    }
    problems.summarise(options.showUnknown ? 0 : unknown, noData);
  }
  return status;
}

}  // namespace q9tool
