// What a user reads of a signal and its frame beside their places: coding,
// scaling, limits, unit, value texts, start value, comments, sender. The
// scaling is the chain of linear computations a raw value passes through,
// as one factor and offset; a coding that is piecewise linear gives that of
// its first piece.
#ifndef Q9DB_PYTHON_SIGNALFACTS_H
#define Q9DB_PYTHON_SIGNALFACTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Q9Db.h"

namespace q9py {

struct SignalFacts {
  std::string name;
  uint32_t encoding = Q9_ENCODING_INVALID;  // Q9_ENCODING_...
  bool isSigned = false;
  bool isFloat = false;
  bool isText = false;
  double scale = 1;
  double offset = 0;
  std::optional<double> minimum, maximum;  // absent: no limit
  std::optional<double> initial;
  std::string unit;
  std::vector<std::pair<int64_t, std::string>> choices;  // raw value as the coding reads it, text
  std::string comment;
};

SignalFacts signalFacts(Q9DbNode* db, Q9DbNode* signal);

// The description (comment) of a node, and the name of a frame
// triggering's sender; empty when there is none.
std::string commentOf(Q9DbNode* node);
std::string senderOf(Q9DbNode* triggering);

}  // namespace q9py

#endif
