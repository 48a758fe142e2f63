// A value is read first as a number (hexadecimal too), checked against the
// signal's limits and encoded by the first computation that takes it; a
// value that is no number is sought among the signal's value texts. Each
// failure says what would have been accepted.
#include "SignalSetting.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "Nodes.h"

namespace q9tool {
namespace {

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.15g", value);
  return text;
}

// A finite number and nothing else; hexadecimal ("0x1F") is taken too.
bool parseNumber(const std::string& text, double& out) {
  if (text.empty() || text.front() == ' ' || text.front() == '\t') return false;
  char* end = nullptr;
  errno = 0;
  double value = std::strtod(text.c_str(), &end);
  if (*end != '\0' || errno == ERANGE || !std::isfinite(value)) return false;
  out = value;
  return true;
}

}  // namespace

bool rawValueOfNumber(Q9DbNode* signal, double value, bool checkRange, uint64_t& raw, std::string& problem) {
  Q9DbPhysicalValue physical{};
  physical.valueType = Q9_VALUETYPE_DOUBLE;
  physical.value.d = value;
  HRESULT limits = checkRange ? Q9Db_checkValueInMinMax(signal, &physical) : S_OK;
  if (limits == Q9_VALUEBELOWRANGE || limits == Q9_VALUEABOVERANGE) {
    double minimum = 0, maximum = 0;
    Q9Db_getMinValue(signal, &minimum);
    Q9Db_getMaxValue(signal, &maximum);
    problem = number(value) + " is out of the signal's range " + number(minimum) + " .. " + number(maximum);
    return false;
  }
  Q9DbEncodeEnum storage{};
  Q9DbEncodeEnum* walk = &storage;  // our own storage: nothing to free
  if (Q9Db_encodeSignal(signal, &physical, &walk) != S_OK) {
    problem = "the signal has no coding to encode values with";
    return false;
  }
  Q9DbNode* computation = nullptr;
  while (Q9Db_encodeNextComputation(walk, &computation) == S_OK)
    if (Q9Db_physicalToInternal(signal, computation, &physical, &raw) == S_OK) return true;
  std::string range = encodableRange(signal);
  problem = range.empty() ? "the signal has no computation from physical to raw values"
                          : number(value) + " is beyond what the signal's bits carry (" + range + ")";
  return false;
}

std::string encodableRange(Q9DbNode* signal) {
  Q9DbNode* coding = nullptr;
  if (Q9Db_getReference(signal, &coding) != S_OK || !coding) return {};
  double low = std::numeric_limits<double>::infinity(), high = -low;
  forEachNode(Q9Db_enumPhysicalToInternalComputations, coding, [&](Q9DbNode* computation) {
    forEachNode(Q9Db_enumRanges, computation, [&](Q9DbNode* range) {
      double lower = 0, upper = 0;
      Q9Db_getLowerLimit(range, &lower);
      Q9Db_getUpperLimit(range, &upper);
      low = std::fmin(low, lower);
      high = std::fmax(high, upper);
    });
  });
  if (low > high) return {};
  return number(low) + " .. " + number(high);
}

bool parseSignalSetting(std::string_view text, SignalSetting& out, std::string& problem) {
  size_t equals = text.find('=');
  size_t dot = text.substr(0, equals).find('.');
  if (equals == std::string_view::npos || dot == std::string_view::npos) {
    problem = "expected FRAME.SIGNAL=VALUE";
    return false;
  }
  out.frame = std::string(text.substr(0, dot));
  out.signal = std::string(text.substr(dot + 1, equals - dot - 1));
  out.value = std::string(text.substr(equals + 1));
  if (out.frame.empty()) problem = "the frame name before '.' is missing";
  else if (out.signal.empty()) problem = "the signal name between '.' and '=' is missing";
  else if (out.value.empty()) problem = "the value after '=' is missing";
  else return true;
  return false;
}

bool rawValueFor(Q9DbNode* db, Q9DbNode* signal, const std::string& value, uint64_t& raw, std::string& problem) {
  double physical = 0;
  if (parseNumber(value, physical)) return rawValueOfNumber(signal, physical, true, raw, problem);
  std::vector<ValueText> texts = valueTexts(db, signal);
  for (const ValueText& text : texts) {
    if (text.text != value) continue;
    // The text's value is what the coding reads from the bits: no
    // computation, only the encoding, turns it back.
    Q9DbPhysicalValue internal{};
    internal.valueType = Q9_VALUETYPE_DOUBLE;
    internal.value.d = text.value;
    if (Q9Db_physicalToInternal(signal, nullptr, &internal, &raw) == S_OK) return true;
    problem = "the value of the text '" + value + "' can't be encoded";
    return false;
  }
  problem = "'" + value + "' is no number";
  if (texts.empty()) {
    problem += ", and the signal has no value texts";
  } else {
    problem += " and none of the signal's value texts:";
    for (size_t i = 0; i < texts.size(); ++i) problem += (i ? ", " : " ") + texts[i].text;
  }
  return false;
}

}  // namespace q9tool
