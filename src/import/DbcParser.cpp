// The DBC reader is forgiving about what it doesn't know: each statement is
// recognised by its first token, and a line that starts with anything else is
// skipped whole. Within a known statement every token is checked, and the
// first mismatch ends the parse.
//
// Parse errors leave through luaL_error (a long jump), so nothing here may
// own anything with a destructor.
#include "import/DbcParser.h"

#include <cstdlib>

#include "import/DbcScanner.h"
#include "import/DbcTokens.h"
#include "import/LuaTree.h"
#include "import/TokenCodes.h"

namespace q9 {
namespace {

constexpr char kSyntaxError[] = "DBC-Import: (%d, %d): '%s' expected but found '%s'";

class DbcParser {
 public:
  DbcParser(lua_State* L, DbcScanner& scanner) : L(L), scanner_(scanner) {}

  void run() {
    pushTaggedTable(L, "db");
    root_ = lua_gettop(L);
    advance();
    while (token_ != kTokenEnd) parseStatement();
  }

 private:
  using Statement = void (DbcParser::*)();
  struct StatementRule {
    int keyword;
    Statement parse;
  };
  static const StatementRule kStatements[];

  void parseStatement();

  // ---- tokens ----

  void advance() {
    token_ = nextDbcToken(scanner_);
    if (token_ == kTokenOutOfMemory) raiseOutOfMemory();
  }

  void raiseOutOfMemory() { luaL_error(L, "not enough memory"); }

  const char* text() {
    const char* utf8 = dbcTokenText(scanner_);
    if (!utf8) raiseOutOfMemory();
    return utf8;
  }

  void fail(const char* expected) {
    const char* found = text();
    luaL_error(L, kSyntaxError, int(scanner_.core.tokenLine), int(scanner_.core.tokenColumn),
               expected, found);
  }

  void require(int code, const char* expected) {
    if (token_ != code) fail(expected);
  }

  void require(char punctuation) {
    const char expected[2] = {punctuation, '\0'};
    require(punctuation, expected);
  }

  void expectNext(int code, const char* expected) {
    advance();
    require(code, expected);
  }

  void expectNext(char punctuation) {
    advance();
    require(punctuation);
  }

  double numberValue() const {
    switch (token_) {
      case kTokenInteger: return double(dbcUnsignedValue(scanner_));
      case kTokenNegativeInteger: return double(dbcSignedValue(scanner_));
      default: return dbcRealValue(scanner_);
    }
  }

  // ---- the tree ----

  void setText(const char* key) { setStringField(L, key, text()); }
  void setUnsigned(const char* key) { setNumberField(L, key, double(dbcUnsignedValue(scanner_))); }

  void appendToRoot() { lua_rawseti(L, root_, ++rootLength_); }

  void expectNextText(int code, const char* expected, const char* key) {
    expectNext(code, expected);
    setText(key);
  }

  void expectNextUnsigned(const char* key) {
    expectNext(kTokenInteger, "constant");
    setUnsigned(key);
  }

  void expectNextNumber(const char* key) {
    advance();
    if (!isNumberToken(token_)) fail("number");
    setNumberField(L, key, numberValue());
  }

  // ---- statements ----

  void parseNamespace() {
    expectNext(':');
    do advance();
    while (token_ >= kDbcVersion && token_ <= kDbcIdentifier);
  }

  void parseNodes() {
    expectNext(':');
    advance();
    while (token_ == kDbcIdentifier) {
      pushTaggedTable(L, "ecu", 1);
      setText("id");
      appendToRoot();
      advance();
    }
  }

  void parseFrame() {
    pushTaggedTable(L, "frame", 5);
    expectNextUnsigned("frameid");
    expectNextText(kDbcIdentifier, "identifier", "id");
    expectNext(':');
    expectNextUnsigned("dlc");
    expectNextText(kDbcIdentifier, "identifier", "sender");
    advance();
    lua_Integer signals = 0;
    while (token_ == kDbcSignal) {
      parseSignal();
      lua_rawseti(L, -2, ++signals);
    }
    appendToRoot();
  }

  void parseSignal() {
    pushTaggedTable(L, "signal", 15);
    expectNextText(kDbcIdentifier, "identifier", "id");
    advance();
    if (token_ == kDbcIdentifier) {
      parseModeWord();
      advance();
    }
    require(':');
    expectNextUnsigned("startbit");
    expectNext('|');
    expectNextUnsigned("bitlen");
    expectNext('@');
    expectNext(kTokenInteger, "constant");
    if (dbcUnsignedValue(scanner_) == 0) setTrueField(L, "bigendian");
    advance();
    if (token_ == '-')
      setTrueField(L, "signed");
    else if (token_ != '+')
      fail("+ or -");
    expectNext('(');
    expectNextNumber("scale");
    expectNext(',');
    expectNextNumber("offset");
    expectNext(')');
    expectNext('[');
    expectNextNumber("min");
    expectNext('|');
    expectNextNumber("max");
    expectNext(']');
    expectNextText(kTokenString, "string constant", "unit");
    parseReceivers();
  }

  // "m<digits>" marks a multiplexed signal with its switch value, "M" the
  // switch itself; anything behind the M is ignored.
  void parseModeWord() {
    const char* word = text();
    if (word[0] == 'm') {
      setStringField(L, "mode", "m");
      setNumberField(L, "modevalue", double(std::atoi(word + 1)));
    } else if (word[0] == 'M') {
      setStringField(L, "mode", "M");
    } else {
      fail("m or M (mode flag)");
    }
  }

  // Receivers stand on the signal's own line, separated by commas or blanks.
  void parseReceivers() {
    lua_createtable(L, 2, 0);
    setDbcLineMode(scanner_, true);
    advance();
    lua_Integer count = 0;
    while (token_ == kDbcIdentifier) {
      lua_pushstring(L, text());
      lua_rawseti(L, -2, ++count);
      advance();
      if (token_ == ',') advance();
    }
    setDbcLineMode(scanner_, false);
    advance();  // drops the line end, or whatever else ended the list
    lua_setfield(L, -2, "receivers");
  }

  // An optional object after CM_ and BA_. Leaves the token after it current.
  void parseObjectReference() {
    advance();
    switch (token_) {
      case kDbcFrame:
      case kDbcSignal: {
        const bool isSignal = token_ == kDbcSignal;
        setText("ntyp");
        expectNext(kTokenInteger, "message id");
        setUnsigned("frame");
        if (isSignal) expectNextText(kDbcIdentifier, "identifier", "signal");
        advance();
        break;
      }
      case kDbcNodes:
      case kDbcEnvironmentVariable:
        setText("ntyp");
        expectNextText(kDbcIdentifier, "identifier", "refid");
        advance();
        break;
      default:
        break;
    }
  }

  // The comment's string stays current, so the rest of its line is skipped.
  void parseComment() {
    pushTaggedTable(L, "comment", 4);
    parseObjectReference();
    require(kTokenString, "string constant");
    setText("text");
    appendToRoot();
  }

  // The closing ';' stays current, so the rest of its line is skipped.
  void parseValues() {
    pushTaggedTable(L, "value", 4);
    advance();
    if (token_ == kTokenInteger) {
      setUnsigned("frame");
      expectNextText(kDbcIdentifier, "identifier", "signal");
    } else if (token_ == kDbcIdentifier) {
      setText("envvar");
    } else {
      fail("message id or environment variable identifier");
    }
    advance();
    bool anyPair = false;
    while (token_ == kTokenInteger) {
      if (!anyPair) lua_createtable(L, 0, 0);
      anyPair = true;
      lua_pushnumber(L, double(dbcUnsignedValue(scanner_)));
      expectNext(kTokenString, "string constant");
      lua_pushstring(L, text());
      lua_rawset(L, -3);
      advance();
    }
    if (anyPair) lua_setfield(L, -2, "values");
    require(';');
    appendToRoot();
  }

  // Attribute values keep their text, numbers included.
  void requireConstantValue() {
    if (token_ < kTokenString || token_ > kTokenFloat) fail("constant value");
    setText("value");
  }

  void finishWithSemicolon() {
    expectNext(';');
    appendToRoot();
    advance();
  }

  void parseAttribute() {
    pushTaggedTable(L, "attr", 5);
    expectNextText(kTokenString, "attribute name", "id");
    parseObjectReference();
    requireConstantValue();
    finishWithSemicolon();
  }

  void parseAttributeDefault() {
    pushTaggedTable(L, "attrdefault");
    expectNextText(kTokenString, "identifier", "id");
    advance();
    requireConstantValue();
    finishWithSemicolon();
  }

  void parseAttributeDefinition() {
    pushTaggedTable(L, "attrdef");
    advance();
    if (token_ == kDbcFrame || token_ == kDbcSignal || token_ == kDbcNodes ||
        token_ == kDbcEnvironmentVariable) {
      setText("ntyp");
      advance();
    }
    require(kTokenString, "attribute name");
    setText("id");
    advance();
    switch (token_) {
      case kDbcInt:
      case kDbcHex:
      case kDbcFloat:
        setText("typ");
        parseBounds(token_ == kDbcFloat ? kTokenFloat : kTokenNegativeInteger);
        break;
      case kDbcString:
        setText("typ");
        advance();
        break;
      case kDbcEnum:
        setText("typ");
        parseEnumValues();
        break;
      default:
        fail("INT, HEX, FLOAT, STRING or ENUM");
    }
    require(';');
    appendToRoot();
    advance();
  }

  // Two bound tokens are always consumed; a bound is kept only when it has
  // the recorded class: a negative integer for INT and HEX (as a number), a
  // floating-point constant for FLOAT (as its text).
  void parseBounds(int recordedClass) {
    for (const char* key : {"min", "max"}) {
      advance();
      if (token_ != recordedClass) continue;
      if (recordedClass == kTokenFloat)
        setText(key);
      else
        setNumberField(L, key, double(dbcSignedValue(scanner_)));
    }
    advance();
  }

  // Any single token separates two values.
  void parseEnumValues() {
    lua_createtable(L, 0, 0);
    advance();
    lua_Integer count = 0;
    while (token_ == kTokenString) {
      lua_pushstring(L, text());
      lua_rawseti(L, -2, ++count);
      advance();
      if (token_ == ';') break;
      advance();
    }
    lua_setfield(L, -2, "values");
  }

  void parseSignalValueType() {
    pushTaggedTable(L, "sigvaltype", 3);
    expectNext(kTokenInteger, "message id");
    setUnsigned("frame");
    expectNextText(kDbcIdentifier, "identifier", "signal");
    expectNext(':');
    expectNext(kTokenInteger, "signal value type (number)");
    setUnsigned("sigvaltype");
    finishWithSemicolon();
  }

  // Statements that carry nothing the tree keeps, possibly over many lines.
  // The ';' stays current, so the rest of its line is skipped.
  void skipToSemicolon() {
    do advance();
    while (token_ != ';' && token_ != kTokenEnd);
  }

  lua_State* L;
  DbcScanner& scanner_;
  int token_ = kTokenEnd;
  int root_ = 0;
  lua_Integer rootLength_ = 0;
};

const DbcParser::StatementRule DbcParser::kStatements[] = {
    {kDbcNamespace, &DbcParser::parseNamespace},
    {kDbcNodes, &DbcParser::parseNodes},
    {kDbcFrame, &DbcParser::parseFrame},
    {kDbcComment, &DbcParser::parseComment},
    {kDbcValues, &DbcParser::parseValues},
    {kDbcAttribute, &DbcParser::parseAttribute},
    {kDbcAttributeDefault, &DbcParser::parseAttributeDefault},
    {kDbcAttributeDefinition, &DbcParser::parseAttributeDefinition},
    {kDbcSignalValueType, &DbcParser::parseSignalValueType},
    {kDbcCategoryDefinition, &DbcParser::skipToSemicolon},
    {kDbcCategory, &DbcParser::skipToSemicolon},
    {kDbcValueTable, &DbcParser::skipToSemicolon},
    {kDbcEnvironmentVariable, &DbcParser::skipToSemicolon},
};

void DbcParser::parseStatement() {
  for (const StatementRule& rule : kStatements) {
    if (rule.keyword == token_) {
      (this->*rule.parse)();
      return;
    }
  }
  // Unknown statements, comments and stray tokens go line by line.
  skipDbcLine(scanner_);
  advance();
}

}  // namespace

int parseDbcTree(lua_State* L, DbcScanner& scanner) {
  DbcParser(L, scanner).run();
  return 1;
}

}  // namespace q9
