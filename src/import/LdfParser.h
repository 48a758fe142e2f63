// Reads a whole LIN description file into the result tree. The reader is
// strict: the sections stand in one fixed order and every token is checked.
// Each section is one table, appended to a "db" root in file order.
//
// Parse errors leave through luaL_error (a long jump), so nothing in the
// section readers may own anything with a destructor.
#pragma once

#include <lua.hpp>

#include "import/LdfScanner.h"
#include "import/LdfTokens.h"

namespace q9 {

// Pushes the root table and returns 1. A syntax error is raised as a Lua
// error with the message "LDF-Import: (line, column): 'x' expected but found
// 'y'"; running out of memory raises one too and marks the scanner.
int parseLdfTree(lua_State* L, LdfScanner& scanner);

// The state of one parse and the token-level steps the sections are made of.
// Field helpers set a key on the table at the top of the Lua stack.
class LdfParser {
 public:
  LdfParser(lua_State* L, LdfScanner& scanner) : L(L), scanner_(scanner) {}

  lua_State* const L;
  double languageVersion = 0.0;

  int token() const { return token_; }
  bool at(int code) const { return token_ == code; }
  // A plain identifier: what starts an entry of most sections.
  bool atEntryName() const { return token_ == ldf::kIdentifier; }
  // An identifier or any keyword.
  bool atName() const { return token_ >= ldf::kIdentifier; }
  bool atInteger() const {
    return token_ == kTokenInteger || token_ == kTokenNegativeInteger;
  }
  const char* text() const { return ldfTokenText(scanner_); }

  void advance();
  // Raises the syntax error for the current token.
  void fail(const char* expected);
  // The current token must be code (a punctuation character or a keyword,
  // which name themselves in the error); then the next one is read.
  void expect(int code);
  // Reads past code when it is current; tells whether it was.
  bool skip(int code);

  // Each checks the current token, stores it and reads the next.
  void nameField(const char* key);
  void integerField(const char* key);
  void numberField(const char* key);
  void stringField(const char* key);  // a string constant
  void textField(const char* key);    // any token's text

  void pushName();
  void pushInteger();
  double integerValue();  // checks for an integer; does not advance

  // Pops the table at the top and appends it to the one below it.
  void appendToParent();

  // Appends names to the table at the top while they come, each optionally
  // followed by a comma: plain identifiers only, or keywords too.
  enum class Names { kPlainIdentifiers, kKeywordsToo };
  void appendNames(Names which);

 private:
  LdfScanner& scanner_;
  int token_ = kTokenEnd;
};

// Reads entries while an entry name is current.
template <void (*Entry)(LdfParser&)>
void eachEntry(LdfParser& p) {
  while (p.atEntryName()) Entry(p);
}

// Section readers. The file head starts at LIN_description_file and leaves
// the token behind it; each of the others reads what stands between its
// braces, with the section's table at the top of the stack, and leaves the
// closing brace current.
void parseFileHead(LdfParser& p);
void parseNodesBody(LdfParser& p);
void parseDiagnosticAddress(LdfParser& p);
void parseCompositeBody(LdfParser& p);
void parseSignal(LdfParser& p);
void parseDiagnosticSignal(LdfParser& p);
void parseFrame(LdfParser& p);
void parseSporadicFrame(LdfParser& p);
void parseEventTriggeredFrame(LdfParser& p);
void parseDiagnosticFrame(LdfParser& p);
void parseNodeAttributes(LdfParser& p);
void parseScheduleTable(LdfParser& p);
void parseSignalGroup(LdfParser& p);
void parseSignalEncoding(LdfParser& p);
void parseSignalRepresentation(LdfParser& p);

// Entries of the form "name, offset;" as frames and signal groups hold them,
// each a table of the given tag, appended to the table at the top.
void parseOffsetEntries(LdfParser& p, const char* tag);

}  // namespace q9
