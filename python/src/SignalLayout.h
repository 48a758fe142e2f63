// Where each signal of a frame lies, as a description file gives it: its
// start bit and byte order in the frame (not in the multiplexed part that
// holds it, whose segments the library assembles from bit 0), and which
// switch values select it. Python users read signals in these terms.
#ifndef Q9DB_PYTHON_SIGNALLAYOUT_H
#define Q9DB_PYTHON_SIGNALLAYOUT_H

#include <cstdint>
#include <vector>

#include "Q9Db.h"

namespace q9py {

struct LaidSignal {
  Q9DbNode* signal = nullptr;
  Q9DbNode* coding = nullptr;
  int32_t start = 0;      // in the frame; the most significant bit of a big-endian field
  int32_t length = 0;
  int32_t byteOrder = Q9_BYTEORDER_LITTLEENDIAN;
  bool isSwitch = false;  // a multiplexed PDU of the frame switches on it
  // The switch whose parts carry the signal (null outside parts or for a
  // switch no signal carries), and the values that select it (none for the
  // part of every other value).
  Q9DbNode* switchSignal = nullptr;
  std::vector<uint32_t> switchCodes;
};

// The frame's signals in the decoder's order (static part before the
// switched ones), each once: a signal several switch values select lists
// them all.
std::vector<LaidSignal> layOutSignals(Q9DbNode* frame);

}  // namespace q9py

#endif
