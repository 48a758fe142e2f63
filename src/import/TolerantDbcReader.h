// The tolerant DBC reader behind readDbcModel: statements are recognised by
// their first word; a deviation with one clear meaning is read as meant and
// warned about once; a statement that makes no sense is skipped up to the
// next line that begins a statement, with a warning quoting it, and the
// rest of the file still reads.
//
// Each statement reader returns false after expected() has described what
// was wrong, and leaves the model as it was before the statement.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "import/DbcModel.h"
#include "import/DbcStatementKeywords.h"
#include "import/DbcTextScanner.h"

namespace q9 {

class TolerantDbcReader {
 public:
  TolerantDbcReader(const std::string& text, DbcModel& model, ImportReport& report);

  bool read();

 private:
  // ---- tokens and problems (TolerantDbcReader.cpp) ----
  void advance();
  bool atStatementStart() const;
  bool atStatementEnd() const { return token_.kind == DbcTokenKind::End || atStatementStart(); }
  bool expected(const std::string& what);
  void noteFirstProblem(TextPosition at, const std::string& problem);
  std::string statementText() const { return dbcExcerpt(statementBegin_, scanner_.textEnd()); }

  // Each takes the current token if it is what the grammar wants there.
  bool symbol(char c);
  bool name(std::string& out, const char* what);
  bool quotedText(std::string& out, const char* what);
  bool messageId(uint32_t& out);
  bool unsigned32(uint32_t& out, const char* what);
  bool real(double& out, const char* what);
  bool constantValue(std::string& value, bool& quoted);
  void skipColons();
  bool endStatement();
  bool skipToStatementEnd();

  // ---- the statement loop (TolerantDbcReader.cpp) ----
  bool readStatement(const DbcStatementKeyword& keyword);
  void skipUnknownStatement();
  void skipLines();
  void reportNotImported();

  // ---- file head and messages (DbcMessageStatements.cpp) ----
  bool readVersion();
  bool readNamespace();
  bool readBusSpeed();
  bool readNodes();
  bool readMessage();
  bool readSignal();
  bool readMultiplexMark(DbcMultiplexMark& mark);
  bool readReceivers(DbcSignal& signal);

  // ---- statements about objects (DbcObjectStatements.cpp) ----
  bool readObjectReference(DbcObjectKind& object, uint32_t& messageId, std::string& name);
  bool readComment();
  bool readAttributeDefinition();
  bool readAttributeDefault();
  bool readAttribute();
  bool readValueDescriptions();
  bool readSignalValueType();
  bool readMultiplexRanges();
  bool readEnvironmentVariable();

  enum class MessageState { None, Open, Skipped };

  DbcTextScanner scanner_;
  DbcTextToken token_;
  TextPosition previousEnd_;  // just behind the token before the current one
  DbcModel& model_;
  ImportReport& report_;

  const char* statementBegin_ = nullptr;
  TextPosition statementAt_;
  MessageState messageState_ = MessageState::None;

  TextPosition problemAt_;
  std::string problem_;
  TextPosition firstProblemAt_;
  std::string firstProblem_;
  bool understoodAny_ = false;
  bool escapesWarned_ = false;
  // NotImported statements by keyword index: how many, and the first place.
  std::vector<std::pair<std::size_t, TextPosition>> notImported_;
};

}  // namespace q9
