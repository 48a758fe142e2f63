// q9db stats: what a capture holds, against what the description says:
// periods and jitter per identifier, frames of the wrong length or form,
// unknown identifiers, and the bus load of each interface.
#include <CLI/CLI.hpp>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unordered_set>

#include "BusBinding.h"
#include "Commands.h"
#include "DescribedFrames.h"
#include "FrameLine.h"
#include "FrameStatistics.h"
#include "Io.h"
#include "LogLine.h"
#include "Network.h"
#include "ProblemReports.h"
#include "Progress.h"
#include "StatsWriter.h"

namespace q9tool {
namespace {

// The described frames no frame of the capture matched on a bus they
// serve, each once however many channels carry it, in the order of their
// identifiers.
std::vector<const DescribedFrame*> framesNotSeen(const DescribedFrames& described, BusChannels& buses,
                                                 const FrameStatistics& statistics, bool j1939) {
  std::unordered_set<Q9DbNode*> seen;
  for (const IdentifierStatistics* id : statistics.identifiers())
    for (const DescribedFrame* f : buses.find(described, id->interface, id->identifier, id->extended, j1939))
      seen.insert(f->frame);
  std::vector<const DescribedFrame*> notSeen;
  for (const DescribedFrame& f : described.all())
    if (seen.insert(f.frame).second) notSeen.push_back(&f);
  std::stable_sort(notSeen.begin(), notSeen.end(), [](const DescribedFrame* a, const DescribedFrame* b) {
    return a->identifier != b->identifier ? a->identifier < b->identifier : !a->extended() && b->extended();
  });
  return notSeen;
}

volatile std::sig_atomic_t interrupted = 0;
void onInterrupt(int) { interrupted = 1; }

// Ctrl-C ends the input, not the program: a live capture piped in is
// stopped that way, and its statistics are still wanted. The handler stays
// to the end of the process, so that a second Ctrl-C while they are
// written (or a signal sent twice) can't cut them off. A command the shell
// started in the background (SIGINT ignored) keeps ignoring it.
void letInterruptEndInput() {
  struct sigaction previous {};
  if (sigaction(SIGINT, nullptr, &previous) != 0 || previous.sa_handler == SIG_IGN) return;
  struct sigaction action {};
  action.sa_handler = onInterrupt;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: a blocked read returns at once
  sigaction(SIGINT, &action, nullptr);
}

}  // namespace

CLI::App* addStatsCommand(CLI::App& app, StatsOptions& options) {
  CLI::App* command = app.add_subcommand(
      "stats",
      "Statistics of a capture in the text forms decode reads (from LOG or standard input) against the description.\n"
      "Per identifier and interface, sorted by both: count; period (time from one frame of the identifier to the\n"
      "next) mean, min, max and stddev (its standard deviation) in ms; jitter: the largest |period - cycle| against\n"
      "the described cycle time; the described length, how many frames differ from it in length or CAN FD form\n"
      "(wrong), and the lengths seen. Frames of unknown identifier are listed as such and counted; described\n"
      "frames the capture lacks are named.\n"
      "Per interface: frames, duration (first to last timestamp) and bus load: the time the frames take on the\n"
      "wire at --bitrate (the data phase of CAN FD frames with bit rate switch at --data-bitrate), over the duration.\n"
      "Bits counted: a classic frame exactly, SOF, identifier, control, data and its CRC-15 with the stuff bits\n"
      "among them, then CRC delimiter, ACK slot and delimiter, 7 bits of end of frame and the 3 of interframe space.\n"
      "CAN FD: the same up to the data (dynamic stuff bits counted), then stuff count and CRC-17/21 with their fixed\n"
      "stuff bits; BRS and the CRC delimiter count whole at the nominal rate, so the time is an estimate within a\n"
      "bit per frame. Remote and error frames are left out; lines without a timestamp count, but give no period\n"
      "and no load. Both are reported on standard error. Ctrl-C ends a live capture: the statistics\n"
      "cover what was read.\n"
      "Example: q9db stats car.dbc --log drive.log --format csv");
  command->add_option("FILE", options.files, "Description files for every bus (DBC, LDF)");
  command->add_option("--bus", options.bindings,
                      "INTERFACE=FILE: describe the frames of one bus with this file alone (repeatable);\n"
                      "files given without a bus serve the other buses");
  command->add_flag("--j1939", options.j1939,
                    "Describe an extended frame whose identifier differs from the description only in\n"
                    "priority, source or destination address (J1939 parameter groups); each identifier\n"
                    "still has its own row");
  command->add_option("--log,-l", options.log, "Capture to read, also gzip or xz compressed; '-' or none: standard input");
  command
      ->add_option_function<std::string>(
          "--format,-f",
          [&options](const std::string& text) {
            if (text == "text") options.format = Format::Text;
            else if (text == "csv") options.format = Format::Csv;
            else if (text == "json") options.format = Format::Json;
            else throw CLI::ValidationError("--format", "'" + text + "' is none of text, csv, json");
          },
          "Output: text (tables), csv (one table; its first field tells frame, interface and\n"
          "not_seen rows apart), or json (one document)")
      ->type_name("FORMAT");
  command->add_option("--bitrate,-b", options.bitrate, "Nominal bit rate of the bus, bit/s")
      ->capture_default_str()->check(CLI::Range(uint32_t(1000), uint32_t(1000000)));
  command->add_option("--data-bitrate", options.dataBitrate, "Bit rate of the CAN FD data phase, bit/s")
      ->capture_default_str()->check(CLI::Range(uint32_t(1000), uint32_t(20000000)));
  return command;
}

int runStats(const StatsOptions& options) {
  Network network;
  BusChannels buses;
  if (int status = openBuses("stats", options.files, options.bindings, options.import, network, buses)) return status;
  DescribedFrames described(buses.allChannels());

  CaptureFile capture;
  if (!capture.open(options.log)) return kExitInputError;
  const std::string& logName = capture.name();

  // A bus no description serves is said once; its frames count as of
  // unknown identifier.
  std::unordered_set<std::string> unbound;
  FrameStatistics statistics([&](std::string_view interface, uint32_t identifier, bool extended) -> const DescribedFrame* {
    if (!buses.channelsFor(interface) && unbound.emplace(interface).second)
      std::fprintf(stderr, "q9db: %s: %.*s: no description is bound to this bus; its frames count as unknown\n",
                   logName.c_str(), int(interface.size()), interface.data());
    auto found = buses.find(described, interface, identifier, extended, options.j1939);
    return found.empty() ? nullptr : found.front();  // the decoder too takes the first channel's
  });
  StatsReport report{statistics, {options.bitrate, options.dataBitrate}, {}, logName};
  int status = kExitOk;
  InputStream input(capture.fd());
  letInterruptEndInput();
  input.stopWhen(&interrupted);
  LineReader reader(input, nullptr);
  Progress progress(capture.fd());
  CanFrame frame;
  std::string_view line;
  while (reader.next(line)) {
    LineResult result = parseFrameLine(line, frame);
    if (result.kind == LineKind::Blank) continue;
    if (result.kind == LineKind::NoData) {
      ++report.skippedFrames;
      continue;
    }
    std::optional<uint64_t> microseconds;
    if (result.kind == LineKind::Frame && !frame.timestamp.empty()) {
      uint64_t parsed = 0;
      if (parseTimestamp(frame.timestamp, parsed)) microseconds = parsed;
      else result = {LineKind::Malformed, "timestamp has more than six decimals or is too large"};
    }
    if (result.kind == LineKind::Malformed) {
      std::fprintf(stderr, "q9db: %s:%llu: %s\n", logName.c_str(), reader.lineNumber(),
                   malformedLineText(result.problem, line).c_str());
      ++report.malformedLines;
      status = kExitInputError;
      continue;
    }
    statistics.add(frame, microseconds);
    progress.update(reader);
  }
  if (reader.failed()) {
    std::fprintf(stderr, "q9db: %s: read error after line %llu: %s\n", logName.c_str(), reader.lineNumber(),
                 reader.error().c_str());
    status = kExitInputError;
  }
  if (input.stopped())
    std::fprintf(stderr, "q9db: %s: interrupted after line %llu; the statistics cover what was read\n",
                 logName.c_str(), reader.lineNumber());

  // Nothing is left out unsaid.
  const struct {
    uint64_t count;
    const char* what;
    const char* consequence;
  } notes[] = {
      {statistics.untimedFrames(), "frames without a timestamp", "they are counted, but give no period and no bus load"},
      {statistics.backwardSteps(), "frames earlier than the one before them of their identifier",
       "no period is taken across such a step"},
      {report.skippedFrames, "remote or error frames", "they are left out of the statistics and the bus load"},
  };
  for (const auto& note : notes)
    if (note.count)
      std::fprintf(stderr, "q9db: %s: %s: %llu; %s\n", logName.c_str(), note.what,
                   static_cast<unsigned long long>(note.count), note.consequence);

  report.notSeen = framesNotSeen(described, buses, statistics, options.j1939);
  Output out(STDOUT_FILENO);
  writeStats(out, options.format, report);
  if (!out.flush() && out.error() != EPIPE) {  // a reader that went away is no error
    std::fprintf(stderr, "q9db: standard output: %s\n", std::strerror(out.error()));
    return kExitInputError;
  }
  return status;
}

}  // namespace q9tool
