// The head of a DBC file (VERSION, NS_, BS_, BU_) and its messages: BO_ and
// the SG_ lines that follow it. A signal that fails is dropped alone; its
// message keeps the others.
#include <utility>

#include "import/TolerantDbcReader.h"

namespace q9 {

bool TolerantDbcReader::readVersion() { return quotedText(model_.version, "version string"); }

// The list names the statement kinds a file may use; it has no end mark.
// It ends at the statements that follow it in every file, or at a keyword
// written in the first column with more on its line, which is a statement
// rather than an entry.
bool TolerantDbcReader::readNamespace() {
  skipColons();
  while (token_.kind == DbcTokenKind::Word) {
    if (const DbcStatementKeyword* keyword = findDbcStatement(token_.begin, token_.size())) {
      switch (keyword->statement) {
        case DbcStatement::Version:
        case DbcStatement::Namespace:
        case DbcStatement::BusSpeed:
        case DbcStatement::Nodes:
        case DbcStatement::Message:
        case DbcStatement::Signal: return true;
        default: break;
      }
      if (token_.startsLine && token_.at.column == 1) {
        const DbcTextToken next = scanner_.peek();
        if (next.kind != DbcTokenKind::End && !next.startsLine) return true;
      }
    }
    advance();
  }
  return true;
}

// "BS_:" may carry a baud rate and bit timing, which the database has no
// place for.
bool TolerantDbcReader::readBusSpeed() {
  skipColons();
  const DbcTextToken first = token_;
  while (token_.kind != DbcTokenKind::End && !token_.startsLine) advance();
  if (first.kind != DbcTokenKind::End && !first.startsLine && !first.is(';'))
    report_.warn(first.at,
                 "bus timing '" + dbcExcerpt(first.begin, scanner_.textEnd()) + "' of BS_ is not imported");
  return true;
}

// The node list ends with its line: a line behind it that is no statement
// is reported as such rather than read as more nodes.
bool TolerantDbcReader::readNodes() {
  skipColons();
  while (token_.kind == DbcTokenKind::Word && !token_.startsLine) {
    model_.nodes.emplace_back(token_.at, std::string(token_.begin, token_.end));
    advance();
  }
  return true;
}

bool TolerantDbcReader::readMessage() {
  DbcMessage message;
  message.at = statementAt_;
  if (!messageId(message.rawId) || !name(message.name, "message name") || !symbol(':') ||
      !unsigned32(message.length, "message size") || !name(message.sender, "sender node"))
    return false;
  model_.messages.push_back(std::move(message));
  messageState_ = MessageState::Open;
  return true;
}

bool TolerantDbcReader::readSignal() {
  std::vector<DbcSignal>& signals = model_.messages.back().signals;
  DbcSignal& signal = signals.emplace_back();
  signal.at = statementAt_;
  bool ok = name(signal.name, "signal name") && (token_.is(':') || readMultiplexMark(signal.mux)) &&
            symbol(':') && unsigned32(signal.startBit, "start bit") && symbol('|') &&
            unsigned32(signal.bitLength, "bit length") && symbol('@');
  if (ok && !token_.isWord("0", 1) && !token_.isWord("1", 1)) ok = expected("byte order '0' or '1'");
  if (ok) {
    signal.bigEndian = *token_.begin == '0';
    advance();
    if (!token_.is('+') && !token_.is('-')) ok = expected("'+' or '-'");
  }
  if (ok) {
    signal.isSigned = token_.is('-');
    advance();
    ok = symbol('(') && real(signal.scale, "factor") && symbol(',') && real(signal.offset, "offset") &&
         symbol(')') && symbol('[') && real(signal.minimum, "minimum") && symbol('|') &&
         real(signal.maximum, "maximum") && symbol(']') && quotedText(signal.unit, "unit string") &&
         readReceivers(signal);
  }
  if (!ok) signals.pop_back();
  return ok;
}

// "M" a switch, "m<n>" selected by switch value n, "m<n>M" both.
bool TolerantDbcReader::readMultiplexMark(DbcMultiplexMark& mark) {
  if (token_.kind != DbcTokenKind::Word) return expected("':'");
  const char* p = token_.begin;
  const char* end = token_.end;
  if (end - p == 1 && *p == 'M') {
    mark.isSwitch = true;
    advance();
    return true;
  }
  const char* kWhat = "multiplexer mark 'M', 'm<n>' or 'm<n>M'";
  if (*p != 'm' || end - p < 2) return expected(kWhat);
  if (end[-1] == 'M') {
    mark.isSwitch = true;
    --end;
  }
  uint64_t value = 0;
  for (++p; p < end; ++p) {
    if (*p < '0' || *p > '9' || value > (UINT64_MAX - 9) / 10) return expected(kWhat);
    value = value * 10 + uint64_t(*p - '0');
  }
  if (end == token_.begin + 1) return expected(kWhat);
  mark.isMultiplexed = true;
  mark.switchValue = value;
  advance();
  return true;
}

// Receivers stand on the signal's own line, separated by commas or blanks.
// Anything else there (a stray ';') leaves the signal as it is.
bool TolerantDbcReader::readReceivers(DbcSignal& signal) {
  while (token_.kind != DbcTokenKind::End && !token_.startsLine) {
    if (token_.kind == DbcTokenKind::Word) {
      signal.receivers.emplace_back(token_.begin, token_.end);
    } else if (!token_.is(',')) {
      const DbcTextToken rest = token_;
      while (token_.kind != DbcTokenKind::End && !token_.startsLine) advance();
      report_.warn(rest.at, "'" + dbcExcerpt(rest.start(), scanner_.textEnd()) +
                                "' behind the receivers of signal " + signal.name +
                                " is not DBC; it was ignored");
      return true;
    }
    advance();
  }
  return true;
}

}  // namespace q9
