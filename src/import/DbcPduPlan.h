// Where each signal of a DBC message goes among PDUs and multiplexed parts.
//
// A message without a switch is one PDU with its signals at their places in
// the frame. A switched message is a multiplexed PDU: its static part holds
// the signals no switch selects (the switch among them), and each value of
// the switch has a dynamic part with the signals that value selects and
// everything those select in turn. A part's PDU sees its segments one after
// the other from bit 0, little-endian; when a switch is among the signals
// of a part, that part's PDU is multiplexed again on it, so extended
// multiplexing becomes multiplexed PDUs nested as deep as the file's
// switches. Two switches side by side chain through the static part.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Q9Db.h"

#include "import/DbcNetwork.h"
#include "import/ImportReport.h"

namespace q9 {

// A signal's field in the coordinates of the PDU that holds it.
struct PlannedField {
  std::size_t signal;  // index among the message's signals
  int32_t byteOrder;
  int32_t position;
  int32_t length;
};

struct PlannedPart;

struct PlannedPdu {
  std::string label;  // "" for the message's own PDU, else the part's label
  int32_t bits = 0;
  // A SignalPDU: the signals it places. A MultiplexedPDU: the switch.
  std::vector<PlannedField> fields;
  bool multiplexed = false;
  PlannedField switchField{};
  std::vector<PlannedPart> parts;  // the static part first, then by switch value
};

struct PlannedPart {
  bool isStatic = false;
  uint32_t code = 0;
  std::vector<PlannedField> segments;  // in the coordinates of the PDU that holds the part
  std::unique_ptr<PlannedPdu> pdu;
};

// The plan of a message whose signals are checked and whose selectors are
// free of cycles. Ranges of switch values beyond what the switch can hold,
// or wider than a part per value allows, are cut with a warning.
PlannedPdu planDbcMessage(const DbcNetworkMessage& message, int32_t frameBits, ImportReport& report);

}  // namespace q9
