// A LIN description file as the tolerant reader understood it: every section
// that carries data, entries in file order with the place they were written,
// before any decision about what becomes a node. Texts are UTF-8.
//
// Integers keep what the format's integer rule gives (32 bits, a value with
// bit 31 set read as negative); values the format writes as any number
// (times, scales, speeds) are doubles.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "import/ImportReport.h"

namespace q9 {

struct LdfName {
  TextPosition at;
  std::string text;
};

struct LdfHeader {
  TextPosition at;
  std::string protocolVersion;
  std::string languageVersion;
  double speed = 0;  // kbit/s
  std::optional<std::string> channelName;
};

struct LdfMaster {
  TextPosition at;
  std::string name;
  double timebase = 0;  // ms
  double jitter = 0;    // ms
};

// LIN 1.x: a slave's diagnostic address, kept as the text written.
struct LdfDiagnosticAddress {
  TextPosition at;
  std::string node;
  std::string address;
};

struct LdfCompositeNode {
  TextPosition at;
  std::string name;
  std::vector<std::string> members;
};

struct LdfCompositeConfiguration {
  TextPosition at;
  std::string name;
  std::vector<LdfCompositeNode> nodes;
};

// A scalar, or a byte array whose elements keep their text as written.
struct LdfInitialValue {
  bool isArray = false;
  int64_t scalar = 0;
  std::vector<std::string> bytes;
};

// Diagnostic signals have no publisher and no subscribers.
struct LdfSignal {
  TextPosition at;
  std::string name;
  int64_t size = 0;
  LdfInitialValue initial;
  std::string publisher;
  std::vector<std::string> subscribers;
};

// A signal placed in a frame, or a member of a signal group.
struct LdfSignalEntry {
  TextPosition at;
  std::string signal;
  int64_t offset = 0;
};

// Diagnostic frames have no publisher and no size.
struct LdfFrame {
  TextPosition at;
  std::string name;
  int64_t ident = 0;
  std::string publisher;
  int64_t size = 0;  // bytes, written or the default of the identifier's range
  std::vector<LdfSignalEntry> signals;
};

struct LdfSporadicFrame {
  TextPosition at;
  std::string name;
  std::vector<std::string> frames;  // in priority order
};

struct LdfEventTriggeredFrame {
  TextPosition at;
  std::string name;
  std::optional<std::string> collisionTable;
  int64_t ident = 0;
  std::vector<std::string> frames;
};

struct LdfProductId {
  int64_t supplier = 0;
  int64_t function = 0;
  std::optional<int64_t> variant;
};

struct LdfConfigurableFrame {
  TextPosition at;
  std::string name;
  std::optional<int64_t> ident;  // LIN 2.0 message id
};

struct LdfNodeAttributes {
  TextPosition at;
  std::string node;
  std::optional<std::string> protocol;  // the text written
  std::optional<int64_t> configuredNad;
  std::optional<int64_t> initialNad;
  std::optional<LdfProductId> productId;
  std::optional<std::string> responseError;
  std::vector<std::string> faultStateSignals;
  std::optional<double> p2Min, stMin, nAsTimeout, nCrTimeout;  // ms
  std::vector<LdfConfigurableFrame> configurableFrames;
};

enum class LdfSlotKind : uint8_t {
  Frame,
  AssignNad,
  ConditionalChangeNad,
  DataDump,
  SaveConfiguration,
  AssignFrameIdRange,
  FreeFormat,
  AssignFrameId,
};

struct LdfScheduleSlot {
  TextPosition at;
  LdfSlotKind kind = LdfSlotKind::Frame;
  std::string frame;            // Frame, AssignFrameId
  std::string node;             // the addressed node; DataDump's node too
  std::vector<int64_t> values;  // the command's numbers in file order
  double delay = 0;             // ms
};

struct LdfScheduleTable {
  TextPosition at;
  std::string name;
  std::vector<LdfScheduleSlot> slots;
};

struct LdfSignalGroup {
  TextPosition at;
  std::string name;
  int64_t size = 0;
  std::vector<LdfSignalEntry> signals;
};

enum class LdfValueKind : uint8_t { Logical, Physical, Bcd, Ascii };

struct LdfEncodingValue {
  TextPosition at;
  LdfValueKind kind = LdfValueKind::Logical;
  int64_t value = 0;         // Logical
  int64_t min = 0, max = 0;  // Physical: the raw range
  double scale = 1, offset = 0;
  std::optional<std::string> text;  // Logical: the value's text; Physical: the unit
};

struct LdfEncodingType {
  TextPosition at;
  std::string name;
  std::vector<LdfEncodingValue> values;
};

struct LdfRepresentation {
  TextPosition at;
  std::string encoding;
  std::vector<LdfName> signals;
};

struct LdfFile {
  LdfHeader header;
  std::optional<LdfMaster> master;
  std::vector<LdfName> slaves;
  std::vector<LdfDiagnosticAddress> diagnosticAddresses;
  std::vector<LdfCompositeConfiguration> compositeConfigurations;
  std::vector<LdfSignal> signals;
  std::vector<LdfSignal> diagnosticSignals;
  std::vector<LdfFrame> frames;
  std::vector<LdfSporadicFrame> sporadicFrames;
  std::vector<LdfEventTriggeredFrame> eventTriggeredFrames;
  std::vector<LdfFrame> diagnosticFrames;
  std::vector<LdfNodeAttributes> nodeAttributes;
  std::vector<LdfScheduleTable> scheduleTables;
  std::vector<LdfSignalGroup> signalGroups;
  std::vector<LdfEncodingType> encodingTypes;
  std::vector<LdfRepresentation> representations;
};

}  // namespace q9
