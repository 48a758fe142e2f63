// What a DBC file means for the database: the statements of the model
// resolved to the nodes and messages they belong to, attributes applied
// (frame format, cycle time, start values, long names), and every signal
// checked against its frame. Import and the file summary both start from
// here, so they agree on what a file holds and on what can't be mapped.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "import/DbcModel.h"
#include "import/ImportReport.h"

namespace q9 {

enum class DbcValueType : uint8_t { Integer, Float, Double };

struct DbcNetworkSignal {
  const DbcSignal* source = nullptr;
  std::string plainName;
  DbcValueType valueType = DbcValueType::Integer;
  std::optional<double> startValue;  // GenSigStartValue, raw
  std::string comment;
  // The signal's VAL_ statement (the last one given), or null, and its texts
  // by raw value, ascending: a key's sign read by the signal's, keys outside
  // the raw values left out (both reported).
  const DbcValueDescriptions* valueTexts = nullptr;
  std::vector<std::pair<double, const std::string*>> rawValueTexts;
  // The multiplexing role as the message uses it: a switch selects the
  // signals that name it, by the values of their ranges ("m3" is the range
  // 3..3 of the message's switch; SG_MUL_VAL_ gives any switch and ranges).
  bool isSwitch = false;
  int selector = -1;  // index of the selecting switch among the message's signals; -1 none
  std::vector<std::pair<uint64_t, uint64_t>> selectingValues;

  const std::string& name() const { return source->name; }
};

struct DbcNetworkMessage {
  const DbcMessage* source = nullptr;
  std::string plainName;
  uint32_t identifier = 0;
  bool extended = false, fd = false, fastData = false;
  uint32_t length = 0;
  std::optional<uint64_t> cycleTime;  // milliseconds
  std::string comment;
  bool skip = false;  // left out, reported
  std::vector<DbcNetworkSignal> signals;
  int switchSignal = -1;  // index of the main switch, which switches the message's PDU

  const std::string& name() const { return source->name; }
};

struct DbcNetworkEcu {
  const std::string* name = nullptr;
  std::string plainName;
  std::string comment;
};

struct DbcNetwork {
  std::vector<DbcNetworkEcu> ecus;
  std::vector<DbcNetworkMessage> messages;
  std::optional<std::string> dbName;
  std::string comment;  // on the whole network
};

// The limits of the value a signal's coding hands to its computations.
std::pair<double, double> rawRangeOf(const DbcNetworkSignal& signal);

// Resolves model (which must outlive the network); what can't be mapped goes
// to report as warnings and is left out.
void resolveDbcNetwork(const DbcModel& model, DbcNetwork& network, ImportReport& report);

}  // namespace q9
