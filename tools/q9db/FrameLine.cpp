// The two forms are told apart by a '#' in the word after the interface.
// Every check that fails says what was wrong with the line; error frames and
// remote requests are not malformed but lines without data, and a trailing
// direction mark is accepted.
#include "FrameLine.h"

#include "FrameType.h"
#include "Q9Db.h"

namespace q9tool {
namespace {

constexpr uint32_t kErrorFrameFlag = 0x20000000u;  // set in the identifier of error frames
constexpr uint32_t kLargestExtendedId = 0x1FFFFFFFu;

// Flags nibble of a CAN FD frame in the log form.
constexpr unsigned kFdBitRateSwitch = 0x1;
constexpr unsigned kFdErrorStateIndicator = 0x2;

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view skipBlanks(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  return text;
}

std::string_view takeToken(std::string_view& text) {
  size_t end = 0;
  while (end < text.size() && !isBlank(text[end])) ++end;
  std::string_view token = text.substr(0, end);
  text = skipBlanks(text.substr(end));
  return token;
}

// Digits with at most one '.' between them: the timestamp goes out as a
// number in JSON, so it has to be one.
bool isDecimalNumber(std::string_view text) {
  size_t dot = text.find('.');
  std::string_view whole = text.substr(0, dot);
  std::string_view fraction = dot == std::string_view::npos ? std::string_view("0") : text.substr(dot + 1);
  if (whole.empty() || fraction.empty()) return false;
  for (std::string_view part : {whole, fraction})
    for (char c : part)
      if (c < '0' || c > '9') return false;
  return true;
}

LineResult malformed(std::string_view problem) { return {LineKind::Malformed, problem}; }
LineResult noData() { return {LineKind::NoData, {}}; }
LineResult ok() { return {LineKind::Frame, {}}; }

bool validFdLength(size_t length) {
  if (length <= 8) return true;
  switch (length) {
    case 12: case 16: case 20: case 24: case 32: case 48: case 64: return true;
    default: return false;
  }
}

// Identifier of 3 (standard) or 8 (extended) hex digits. Error frames carry
// a flag above the 29 identifier bits; the caller skips them.
LineResult parseIdentifier(std::string_view digits, CanFrame& frame, bool& errorFrame) {
  errorFrame = false;
  if (digits.size() != 3 && digits.size() != 8) return malformed("identifier must have 3 or 8 hex digits");
  uint32_t id = 0;
  for (char c : digits) {
    int v = hexValue(c);
    if (v < 0) return malformed("identifier holds a character that is no hex digit");
    id = id << 4 | static_cast<uint32_t>(v);
  }
  if (digits.size() == 3) {
    if (id > kLargestStandardId) return malformed("standard identifier is above 7FF");
    frame.flags = Q9_FLAG_CANSTANDARD;
  } else {
    if (id & kErrorFrameFlag) {
      errorFrame = true;
      return noData();
    }
    if (id > kLargestExtendedId) return malformed("extended identifier is above 1FFFFFFF");
    frame.flags = Q9_FLAG_CANEXTENDED;
  }
  frame.identifier = id;
  return ok();
}

LineResult checkLength(const CanFrame& frame, size_t length) {
  if (frame.flags & Q9_FLAG_CANFD_FRAME) {
    if (length > 64) return malformed("CAN FD data is longer than 64 bytes");
    if (!validFdLength(length)) return malformed("CAN FD data length is none of 0-8, 12, 16, 20, 24, 32, 48, 64");
  } else if (length > 8) {
    return malformed("classic CAN data is longer than 8 bytes");
  }
  return ok();
}

// After "ID#": data as hex pairs (dots allowed between bytes), "R" for a
// remote frame, "#F..." for CAN FD with its flags nibble F.
LineResult parseLogData(std::string_view text, CanFrame& frame) {
  if (!text.empty() && (text.front() == 'R' || text.front() == 'r')) return noData();
  if (!text.empty() && text.front() == '#') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '#') return malformed("CAN XL frames are not supported");
    if (text.empty()) return malformed("CAN FD flags nibble is missing after '##'");
    int fdFlags = hexValue(text.front());
    if (fdFlags < 0) return malformed("CAN FD flags nibble is no hex digit");
    text.remove_prefix(1);
    frame.flags |= Q9_FLAG_CANFD_FRAME;
    if (fdFlags & kFdBitRateSwitch) frame.flags |= Q9_FLAG_CANFD_FASTDATA;
    if (fdFlags & kFdErrorStateIndicator) frame.flags |= Q9_FLAG_CANFD_ERRORSTATEIND;
  }
  // A classic frame of 8 bytes may carry its raw DLC above 8 as "_D".
  if (!(frame.flags & Q9_FLAG_CANFD_FRAME) && text.size() >= 2 && text[text.size() - 2] == '_') {
    if (hexValue(text.back()) < 0) return malformed("DLC after '_' is no hex digit");
    text.remove_suffix(2);
  }
  size_t length = 0;
  while (!text.empty()) {
    if (text.front() == '.') {
      text.remove_prefix(1);
      continue;
    }
    if (text.size() < 2 || text[1] == '.') return malformed("data has an odd number of hex digits");
    int high = hexValue(text[0]);
    int low = hexValue(text[1]);
    if (high < 0 || low < 0) return malformed("data holds a character that is no hex digit");
    if (length == sizeof frame.data) return malformed("data is longer than 64 bytes");
    frame.data[length++] = static_cast<uint8_t>(high << 4 | low);
    text.remove_prefix(2);
  }
  LineResult checked = checkLength(frame, length);
  if (checked.kind != LineKind::Frame) return checked;
  frame.length = static_cast<uint8_t>(length);
  return ok();
}

// After the identifier: "[N]" (classic) or "[NN]" (CAN FD), then N bytes
// as hex pairs separated by blanks, or "remote request".
LineResult parseLiveData(std::string_view text, CanFrame& frame) {
  std::string_view lengthToken = takeToken(text);
  if (lengthToken.size() < 3 || lengthToken.front() != '[' || lengthToken.back() != ']')
    return malformed("length in brackets expected after the identifier");
  std::string_view digits = lengthToken.substr(1, lengthToken.size() - 2);
  if (digits.size() > 2) return malformed("length has more than two digits");
  size_t declared = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return malformed("length is no decimal number");
    declared = declared * 10 + static_cast<size_t>(c - '0');
  }
  if (digits.size() == 2) frame.flags |= Q9_FLAG_CANFD_FRAME;  // candump prints FD lengths with two digits
  if (text.substr(0, 6) == "remote") return noData();
  LineResult checked = checkLength(frame, declared);
  if (checked.kind != LineKind::Frame) return checked;
  size_t length = 0;
  while (!text.empty()) {
    std::string_view byte = takeToken(text);
    if (byte.size() != 2) return malformed("data byte is not two hex digits");
    int high = hexValue(byte[0]);
    int low = hexValue(byte[1]);
    if (high < 0 || low < 0) return malformed("data holds a character that is no hex digit");
    if (length == declared) return malformed("more data bytes than the length in brackets");
    frame.data[length++] = static_cast<uint8_t>(high << 4 | low);
  }
  if (length != declared) return malformed("fewer data bytes than the length in brackets");
  frame.length = static_cast<uint8_t>(length);
  return ok();
}

}  // namespace

LineResult parseFrameLine(std::string_view line, CanFrame& frame) {
  frame.timestamp = {};
  frame.interface = {};
  frame.identifier = 0;
  frame.flags = 0;
  frame.length = 0;
  while (!line.empty() && (line.back() == '\r' || line.back() == '\n' || isBlank(line.back()))) line.remove_suffix(1);
  std::string_view rest = skipBlanks(line);
  if (rest.empty()) return {LineKind::Blank, {}};

  if (rest.front() == '(') {
    size_t close = rest.find(')');
    if (close == std::string_view::npos) return malformed("timestamp has no closing ')'");
    std::string_view stamp = rest.substr(1, close - 1);
    if (stamp.empty()) return malformed("timestamp is empty");
    if (!isDecimalNumber(stamp)) return malformed("timestamp is not seconds as digits with one optional '.'");
    frame.timestamp = stamp;
    rest = skipBlanks(rest.substr(close + 1));
  }

  frame.interface = takeToken(rest);
  if (frame.interface.empty()) return malformed("interface name is missing");
  // Such a name would read back as a timestamp or a frame.
  if (frame.interface.find_first_of("()#") != std::string_view::npos)
    return malformed("interface name holds '(', ')' or '#'");
  if (rest.empty()) return malformed("frame is missing after the interface name");

  // The log form has a '#' in the word after the interface: the identifier
  // ends at the first '#' or blank.
  size_t hash = 0;
  while (hash < rest.size() && rest[hash] != '#' && !isBlank(rest[hash])) ++hash;
  bool logForm = hash < rest.size() && rest[hash] == '#';
  bool errorFrame = false;
  if (logForm) {
    std::string_view token = takeToken(rest);
    // candump may append the direction of the frame, T or R.
    if (!rest.empty() && !(rest.size() == 1 && (rest == "T" || rest == "R")))
      return malformed("unexpected text after the frame");
    LineResult id = parseIdentifier(token.substr(0, hash), frame, errorFrame);
    if (id.kind != LineKind::Frame || errorFrame) return id;
    return parseLogData(token.substr(hash + 1), frame);
  }
  LineResult id = parseIdentifier(takeToken(rest), frame, errorFrame);
  if (id.kind != LineKind::Frame || errorFrame) return id;
  return parseLiveData(rest, frame);
}

}  // namespace q9tool
