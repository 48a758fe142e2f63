// The statement loop of the tolerant DBC reader, the token helpers the
// statement readers share, and readDbcModel.
#include "import/TolerantDbcReader.h"

#include "import/DbcTextNumbers.h"

namespace q9 {
namespace {

std::string quoted(const std::string& text) { return "'" + text + "'"; }

}  // namespace

TolerantDbcReader::TolerantDbcReader(const std::string& text, DbcModel& model, ImportReport& report)
    : scanner_(text), model_(model), report_(report), notImported_(dbcStatementKeywordCount()) {}

// ---- tokens ----

void TolerantDbcReader::advance() {
  previousEnd_ = token_.endAt;
  scanner_.next(token_);
  if (token_.kind != DbcTokenKind::String) return;
  if (token_.unclosed)
    report_.warn(token_.at, "string has no closing quote; it was taken to end with its line");
  if (token_.escaped && !escapesWarned_) {
    escapesWarned_ = true;
    report_.warn(token_.at, "strings use backslash escapes; they were unescaped");
  }
}

bool TolerantDbcReader::atStatementStart() const {
  return token_.startsLine && token_.kind == DbcTokenKind::Word &&
         findDbcStatement(token_.begin, token_.size());
}

// A missing field is reported where it should have stood: behind the last
// token of the statement's line.
bool TolerantDbcReader::expected(const std::string& what) {
  problemAt_ = token_.at;
  std::string found;
  if (token_.kind == DbcTokenKind::End) {
    problemAt_ = previousEnd_;
    found = "the end of the file";
  } else if (atStatementStart()) {
    problemAt_ = previousEnd_;
    found = "the end of the line";
  } else if (token_.kind == DbcTokenKind::String) {
    found = quoted("\"" + dbcExcerpt(token_.begin, token_.end) + (token_.unclosed ? "" : "\""));
  } else {
    found = quoted(dbcExcerpt(token_.begin, token_.end));
  }
  problem_ = what + " expected but found " + found;
  return false;
}

// Kept for a file of which nothing can be used: the first thing that was wrong.
void TolerantDbcReader::noteFirstProblem(TextPosition at, const std::string& problem) {
  if (!firstProblem_.empty()) return;
  firstProblem_ = problem;
  firstProblemAt_ = at;
}

bool TolerantDbcReader::symbol(char c) {
  if (!token_.is(c)) return expected(std::string("'") + c + "'");
  advance();
  return true;
}

bool TolerantDbcReader::name(std::string& out, const char* what) {
  if (token_.kind != DbcTokenKind::Word || atStatementStart()) return expected(what);
  out.assign(token_.begin, token_.end);
  advance();
  return true;
}

bool TolerantDbcReader::quotedText(std::string& out, const char* what) {
  if (token_.kind != DbcTokenKind::String) return expected(what);
  out = unescapeDbcString(token_);
  advance();
  return true;
}

bool TolerantDbcReader::messageId(uint32_t& out) {
  DbcInteger id;
  if (!readDbcInteger(token_, false, id)) return expected("message id");
  out = uint32_t(id.magnitude);
  if (id.overflow || id.magnitude > UINT32_MAX)
    report_.warn(token_.at, "message id " + quoted(std::string(token_.begin, token_.end)) +
                                " does not fit 32 bits; its low 32 bits were kept (" + std::to_string(out) +
                                ")");
  advance();
  return true;
}

bool TolerantDbcReader::unsigned32(uint32_t& out, const char* what) {
  DbcInteger value;
  if (!readDbcInteger(token_, false, value) || value.overflow || value.magnitude > UINT32_MAX)
    return expected(what);
  out = uint32_t(value.magnitude);
  advance();
  return true;
}

bool TolerantDbcReader::real(double& out, const char* what) {
  bool missingDigit = false;
  if (!readDbcReal(token_, out, missingDigit)) return expected(what);
  if (missingDigit)
    report_.warn(token_.at, "number " + quoted(std::string(token_.begin, token_.end)) +
                                " has no leading digit; read as " + dbcNumberText(token_, true));
  advance();
  return true;
}

// Attribute values keep their text: the meaning depends on the definition.
bool TolerantDbcReader::constantValue(std::string& value, bool& isQuoted) {
  isQuoted = token_.kind == DbcTokenKind::String;
  if (isQuoted) return quotedText(value, "value");
  double number = 0;
  bool missingDigit = false;
  if (readDbcReal(token_, number, missingDigit)) {
    value = dbcNumberText(token_, missingDigit);
    return real(number, "value");
  }
  const TextPosition at = token_.at;
  if (!name(value, "value")) return false;
  isQuoted = true;
  report_.warn(at, "value " + quoted(value) + " is not quoted; read as the string \"" + value + "\"");
  return true;
}

void TolerantDbcReader::skipColons() {
  while (token_.is(':')) advance();
}

bool TolerantDbcReader::endStatement() {
  if (token_.is(';')) {
    advance();
    return true;
  }
  if (!atStatementEnd()) return expected("';'");
  const bool atFileEnd = token_.kind == DbcTokenKind::End;
  report_.warn(previousEnd_, "statement " + quoted(statementText()) + " has no closing ';' " +
                                 (atFileEnd ? "at the end of the file" : "before the next statement") +
                                 "; it was supplied");
  return true;
}

// Statements kept whole or in part end at their ';'; strings in them may
// hold a ';' of their own.
bool TolerantDbcReader::skipToStatementEnd() {
  while (!token_.is(';') && !atStatementEnd()) advance();
  return endStatement();
}

// ---- the statement loop ----

bool TolerantDbcReader::read() {
  advance();
  const bool anyToken = token_.kind != DbcTokenKind::End;
  while (token_.kind != DbcTokenKind::End) {
    const DbcStatementKeyword* keyword =
        token_.kind == DbcTokenKind::Word ? findDbcStatement(token_.begin, token_.size()) : nullptr;
    if (!keyword) {
      skipUnknownStatement();
      continue;
    }
    statementBegin_ = token_.begin;
    statementAt_ = token_.at;
    if (keyword->statement == DbcStatement::Signal && messageState_ != MessageState::Open) {
      if (messageState_ == MessageState::None) {
        noteFirstProblem(statementAt_, "message (BO_) expected but found " + quoted(statementText()));
        report_.warn(statementAt_,
                     "signal " + quoted(statementText()) + " stands outside a message; it was skipped");
      }
      skipLines();  // the message's own warning covers its signals
      continue;
    }
    if (keyword->statement != DbcStatement::Signal) messageState_ = MessageState::None;
    if (readStatement(*keyword)) {
      understoodAny_ = true;
      continue;
    }
    noteFirstProblem(problemAt_, problem_);
    const std::string text = quoted(statementText());
    if (keyword->statement == DbcStatement::Message) {
      messageState_ = MessageState::Skipped;
      report_.warn(problemAt_, problem_ + "; the message " + text + " was skipped with its signals");
    } else {
      const char* what = keyword->statement == DbcStatement::Signal ? "; the signal " : "; the statement ";
      report_.warn(problemAt_, problem_ + what + text + " was skipped");
    }
    if (!atStatementStart()) skipLines();
  }
  reportNotImported();
  if (!understoodAny_ && anyToken) {
    report_.fail(firstProblemAt_, firstProblem_);
    return false;
  }
  return true;
}

bool TolerantDbcReader::readStatement(const DbcStatementKeyword& keyword) {
  advance();
  switch (keyword.statement) {
    case DbcStatement::Version: return readVersion();
    case DbcStatement::Namespace: return readNamespace();
    case DbcStatement::BusSpeed: return readBusSpeed();
    case DbcStatement::Nodes: return readNodes();
    case DbcStatement::Message: return readMessage();
    case DbcStatement::Signal: return readSignal();
    case DbcStatement::Comment: return readComment();
    case DbcStatement::AttributeDefinition: return readAttributeDefinition();
    case DbcStatement::AttributeDefault: return readAttributeDefault();
    case DbcStatement::Attribute: return readAttribute();
    case DbcStatement::ValueDescriptions: return readValueDescriptions();
    case DbcStatement::SignalValueType: return readSignalValueType();
    case DbcStatement::MultiplexRanges: return readMultiplexRanges();
    case DbcStatement::EnvironmentVariable: return readEnvironmentVariable();
    case DbcStatement::Skipped: return skipToStatementEnd();
    case DbcStatement::NotImported: {
      auto& [count, first] = notImported_[std::size_t(&keyword - dbcStatementKeywords())];
      if (count++ == 0) first = statementAt_;
      return skipToStatementEnd();
    }
  }
  return false;
}

// Whatever the grammar doesn't know is dropped up to the next line that
// begins a statement, quoted so that the writer can find it.
void TolerantDbcReader::skipUnknownStatement() {
  const std::string text = quoted(dbcExcerpt(token_.start(), scanner_.textEnd()));
  noteFirstProblem(token_.at, "DBC statement expected but found " + text);
  report_.warn(token_.at, "statement " + text + " is not known; it was skipped");
  skipLines();
}

void TolerantDbcReader::skipLines() {
  const char* word = nullptr;
  std::size_t length = 0;
  while (scanner_.skipLine(word, length))
    if (length != 0 && findDbcStatement(word, length)) break;
  advance();
}

void TolerantDbcReader::reportNotImported() {
  const DbcStatementKeyword* keywords = dbcStatementKeywords();
  for (std::size_t i = 0; i < notImported_.size(); ++i) {
    const auto& [count, first] = notImported_[i];
    if (count == 0) continue;
    report_.warn(first, std::to_string(count) + " " + keywords[i].word +
                            (count == 1 ? " statement (" : " statements (") + keywords[i].holds + ") " +
                            (count == 1 ? "was" : "were") + " not imported");
  }
}

bool readDbcModel(const std::string& text, DbcModel& model, ImportReport& report) {
  return TolerantDbcReader(text, model, report).read();
}

}  // namespace q9
