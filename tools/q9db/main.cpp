// q9db: the command-line face of the library for daily work in a shell.
#include <CLI/CLI.hpp>

#include <cctype>
#include <csignal>
#include <cstdio>
#include <new>
#include <cstdlib>
#include <map>

#include "Commands.h"
#include "LogLine.h"

using namespace q9tool;

namespace {
const std::map<std::string, Format> kFormats{
    {"text", Format::Text}, {"line", Format::Line}, {"csv", Format::Csv}, {"json", Format::Json}};
constexpr double kLongestSimulation = 1e7;  // seconds: the clock in microseconds stays far from overflowing
}

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a closed pipe shows as a failed write, and decoding stops
  CLI::App app{"q9db: inspect vehicle bus descriptions (DBC, LDF) and decode, simulate and convert with them."};
  app.require_subcommand(1);
  app.set_help_all_flag("--help-all", "Print help for every command");
  app.set_version_flag("--version", std::string("q9db ") + Q9DB_TOOL_VERSION);
  // Options of the whole tool may come after the command too.
  app.fallthrough();
  ImportOptions importOptions;
  app.add_flag("--quiet,-q", importOptions.quiet,
               "Leave out import warnings and per-frame problem reports; counts are still given");

  DecodeOptions decode;
  CLI::App* decodeCommand = app.add_subcommand(
      "decode",
      "Decode CAN frames in the text forms of the Linux CAN tools, from LOG or standard input.\n"
      "Log form:  (1436509052.249713) can0 123#DEADBEEF   (also 12345678#.., 123##1.. for CAN FD)\n"
      "Live form:   can0  123   [4]  DE AD BE EF\n"
      "Example: candump -L can0 | q9db decode car.dbc");
  decodeCommand->add_option("FILE", decode.files, "Description files for every bus (DBC, LDF)");
  decodeCommand->add_option("--bus,-b", decode.bindings,
                            "INTERFACE=FILE: decode the frames of one bus with this file alone (repeatable);\n"
                            "files given without a bus serve the other buses");
  decodeCommand->add_option("--log,-l", decode.log, "Capture to read, also gzip or xz compressed; '-' or none: standard input");
  decodeCommand
      ->add_option_function<std::string>(
          "--format,-f",
          [&decode](const std::string& text) {
            std::string name = text;
            for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            auto found = kFormats.find(name);
            if (found == kFormats.end())
              throw CLI::ValidationError("--format", "'" + text + "' is none of text, line, csv, json");
            decode.format = found->second;
          },
          "Output: text (a line per signal, the default), line (a line per frame), csv, or json (an object per frame)")
      ->type_name("FORMAT");
  decodeCommand->add_flag("--show-unknown,-u", decode.showUnknown, "Print frames of unknown identifier raw");
  decodeCommand->add_flag("--raw,-r", decode.raw, "Print each frame's bytes beside its values");
  decodeCommand
      ->add_option_function<std::string>(
          "--timestamps,-t",
          [&decode](const std::string& text) {
            if (text == "a") decode.timestamps = Timestamps::Absolute;
            else if (text == "z") decode.timestamps = Timestamps::FromFirst;
            else if (text == "d") decode.timestamps = Timestamps::Delta;
            else throw CLI::ValidationError("--timestamps", "'" + text + "' is none of a, z, d");
          },
          "a: as logged (the default), z: from the first frame, d: from the frame before")
      ->type_name("a|z|d");
  decodeCommand->add_option("--id,-i", decode.filters.identifiers,
                            "Only frames whose identifier passes: ID:MASK (id & mask == ID & mask), ID~MASK (the\n"
                            "opposite) or ID, in hexadecimal as candump takes them (repeatable: any may pass)");
  decodeCommand->add_option("--frame", decode.filters.frames,
                            "Only frames of this name; shell patterns such as 'Wheel*' (repeatable)");
  decodeCommand->add_option("--signal,-s", decode.filters.signals,
                            "Only signals of this name, and the frames that carry them; patterns too (repeatable)");
  decodeCommand->add_flag("--j1939", decode.j1939,
                          "Decode an extended frame whose identifier differs from the description only in\n"
                          "priority, source or destination address (J1939 parameter groups)");
  decodeCommand->add_option("--max-reports", decode.maxReports,
                            "Problems shown of each kind (malformed lines, frames not decoded) before they are only\n"
                            "counted; 0: all")
      ->capture_default_str();

  SimulateOptions simulate;
  CLI::App* simulateCommand = app.add_subcommand(
      "simulate",
      "Send the CAN frames of the imported files as their ECUs would, through the library's frame encoder,\n"
      "and write them to standard output in the log form, which canplayer replays and decode reads.\n"
      "Cyclic frames go out at the first step and then once per cycle; others when a --set changes them.\n"
      "Example: q9db simulate car.dbc --duration 5 --set EngineStatus.EngineSpeed=2500 --set Gear.GearPos=Reverse");
  simulateCommand->add_option("FILE", simulate.files, "Description files to import (DBC, LDF)")->required();
  simulateCommand->add_option("--duration,-d", simulate.duration, "Seconds of bus time to simulate")
      ->required()
      ->check(CLI::Validator(
          [](std::string& text) {
            double seconds = std::strtod(text.c_str(), nullptr);  // CLI11 has checked it is a number
            return seconds > 0 && seconds <= kLongestSimulation ? std::string()
                                                                : std::string("the duration must be above 0 and at most 1e7 seconds");
          },
          "SECONDS"));
  simulateCommand->add_option("--step", simulate.stepMilliseconds, "Clock step in milliseconds")
      ->capture_default_str()->check(CLI::Range(uint64_t(1), uint64_t(3600000)));
  simulateCommand->add_option("--set,-s", simulate.settings,
                              "FRAME.SIGNAL=VALUE: a physical value, or one of the signal's value texts (repeatable)");
  simulateCommand->add_option("--script", simulate.script,
                              "Lua file whose function before_send(frame) may change each frame before it goes out\n"
                              "(counters, checksums); see examples/restbus.lua")
      ->check(CLI::ExistingFile);
  simulateCommand->add_option("--interface,-i", simulate.interface, "Interface name written in each line")
      ->capture_default_str()
      ->check(CLI::Validator(
          [](std::string& name) {
            return name.empty() || name.find_first_of(" \t()#") != std::string::npos
                       ? std::string("an interface name is one word without '(', ')' or '#'")
                       : std::string();
          },
          "NAME"));
  simulateCommand
      ->add_option_function<std::string>(
          "--start",
          [&simulate](const std::string& text) {
            if (!parseTimestamp(text, simulate.startMicroseconds))
              throw CLI::ValidationError("--start", "a timestamp is seconds with at most six decimals, e.g. 1700000000.25");
          },
          "Timestamp of the first frames, in seconds")
      ->default_str("1700000000.000000");

  StatsOptions stats;
  CLI::App* statsCommand = addStatsCommand(app, stats);

  std::vector<std::string> dumpFiles;
  CLI::App* dumpCommand = app.add_subcommand(
      "dump", "Print clusters, channels, ECUs, frames and their signals of the imported files");
  dumpCommand->add_option("FILE", dumpFiles, "Description files to import (DBC, LDF)")->required();

  std::vector<std::string> dotFiles;
  std::string dotOutput = "q9db.dot";
  CLI::App* dotCommand = app.add_subcommand(
      "dot", "Write the imported database as a Graphviz graph (render with: dot -Tsvg q9db.dot -o q9db.svg)");
  dotCommand->add_option("FILE", dotFiles, "Description files to import (DBC, LDF)")->required();
  dotCommand->add_option("-o,--output", dotOutput, "Graph file to write; '-': standard output")->capture_default_str();

  std::string infoFile;
  CLI::App* infoCommand = app.add_subcommand(
      "info", "Tell whether a filter reads the file, the database id it describes, and the import report");
  infoCommand->add_option("FILE", infoFile, "Description file")->required();

  std::string convertInput, convertOutput;
  CLI::App* convertCommand =
      app.add_subcommand("convert", "Import IN and export the database as OUT (.dbc: its CAN bus, .ldf: its LIN bus)");
  convertCommand->add_option("IN", convertInput, "Description file to import")->required();
  convertCommand->add_option("OUT", convertOutput, "File to write; its extension picks the filter")->required();

  int status = kExitOk;
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    int printed = app.exit(e);
    return printed == 0 ? kExitOk : kExitUsageError;  // help is no error
  }
  decode.import = simulate.import = stats.import = importOptions;
  try {
    if (*decodeCommand) status = runDecode(decode);
    else if (*simulateCommand) status = runSimulate(simulate);
    else if (*statsCommand) status = runStats(stats);
    else if (*dumpCommand) status = runDump(dumpFiles, importOptions);
    else if (*dotCommand) status = runDot(dotFiles, dotOutput, importOptions);
    else if (*infoCommand) status = runInfo(infoFile);
    else if (*convertCommand) status = runConvert(convertInput, convertOutput, importOptions);
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "q9db: out of memory\n");
    return kExitInputError;
  }
  if (!standardOutputWritten()) status = kExitInputError;
  return status;
}
