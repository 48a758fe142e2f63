// The sections are driven by one table of keyword, presence rule and body
// reader, so their fixed order and the version rules stand in one place. A
// missing required section fails as the keyword that was expected there;
// whatever follows the last section is not read.
#include "import/LdfParser.h"

#include "import/LuaTree.h"

namespace q9 {
namespace {

constexpr char kSyntaxError[] = "LDF-Import: (%d, %d): '%s' expected but found '%s'";

enum class Presence { kRequired, kOptional, kOnlyBelowVersion2, kRequiredFromVersion2 };

struct SectionRule {
  int keyword;
  const char* tag;
  Presence presence;
  void (*body)(LdfParser& p);
};

// The sections after the file head, in the only order a file may have them.
constexpr SectionRule kSections[] = {
    {ldf::Nodes, "nodes", Presence::kRequired, parseNodesBody},
    {ldf::Diagnostic_addresses, "diagnosticaddresses", Presence::kOnlyBelowVersion2,
     eachEntry<parseDiagnosticAddress>},
    {ldf::composite, "composite", Presence::kOptional, parseCompositeBody},
    {ldf::Signals, "signals", Presence::kRequired, eachEntry<parseSignal>},
    {ldf::Diagnostic_signals, "diagnosticsignals", Presence::kOptional,
     eachEntry<parseDiagnosticSignal>},
    {ldf::Frames, "frames", Presence::kRequired, eachEntry<parseFrame>},
    {ldf::Sporadic_frames, "sporadicframes", Presence::kOptional, eachEntry<parseSporadicFrame>},
    {ldf::Event_triggered_frames, "eventtriggeredframes", Presence::kOptional,
     eachEntry<parseEventTriggeredFrame>},
    {ldf::Diagnostic_frames, "diagnosticframes", Presence::kOptional,
     eachEntry<parseDiagnosticFrame>},
    {ldf::Node_attributes, "nodeattributes", Presence::kRequiredFromVersion2,
     eachEntry<parseNodeAttributes>},
    {ldf::Schedule_tables, "scheduletables", Presence::kRequired, eachEntry<parseScheduleTable>},
    {ldf::Signal_groups, "signalgroups", Presence::kOptional, eachEntry<parseSignalGroup>},
    {ldf::Signal_encoding_types, "signalencodingtypes", Presence::kOptional,
     eachEntry<parseSignalEncoding>},
    {ldf::Signal_representation, "signalrepresentations", Presence::kOptional,
     eachEntry<parseSignalRepresentation>},
};

// Whether the section is to be read here; raises the error for a required
// one that is missing.
bool sectionIsTaken(LdfParser& p, const SectionRule& rule) {
  const bool version2 = p.languageVersion >= 2.0;
  switch (rule.presence) {
    case Presence::kOnlyBelowVersion2:
      return !version2 && p.at(rule.keyword);
    case Presence::kOptional:
      return p.at(rule.keyword);
    case Presence::kRequiredFromVersion2:
      if (!version2) return false;
      [[fallthrough]];
    case Presence::kRequired:
      if (!p.at(rule.keyword)) p.fail(ldf::keywordText(rule.keyword));
      return true;
  }
  return false;
}

void parseSection(LdfParser& p, const SectionRule& rule) {
  p.advance();
  p.expect('{');
  pushTaggedTable(p.L, rule.tag);
  rule.body(p);
  p.expect('}');
  p.appendToParent();
}

}  // namespace

void LdfParser::advance() {
  token_ = nextLdfToken(scanner_);
  if (token_ == kTokenOutOfMemory) luaL_error(L, "not enough memory");
}

void LdfParser::fail(const char* expected) {
  luaL_error(L, kSyntaxError, int(scanner_.core.tokenLine), int(scanner_.core.tokenColumn),
             expected, text());
}

void LdfParser::expect(int code) {
  if (token_ != code) {
    const char* keyword = ldf::keywordText(code);
    const char punctuation[2] = {char(code), '\0'};
    fail(keyword ? keyword : punctuation);
  }
  advance();
}

bool LdfParser::skip(int code) {
  if (token_ != code) return false;
  advance();
  return true;
}

void LdfParser::pushName() {
  if (!atName()) fail("identifier");
  lua_pushstring(L, text());
  advance();
}

double LdfParser::integerValue() {
  if (!atInteger()) fail("integer");
  return double(ldfIntegerValue(scanner_));
}

void LdfParser::pushInteger() {
  lua_pushnumber(L, integerValue());
  advance();
}

void LdfParser::nameField(const char* key) {
  pushName();
  lua_setfield(L, -2, key);
}

void LdfParser::integerField(const char* key) {
  pushInteger();
  lua_setfield(L, -2, key);
}

void LdfParser::numberField(const char* key) {
  if (!isNumberToken(token_)) fail("number");
  setNumberField(L, key, ldfNumberValue(scanner_));
  advance();
}

void LdfParser::stringField(const char* key) {
  if (token_ != kTokenString) fail("string constant");
  textField(key);
}

void LdfParser::textField(const char* key) {
  setStringField(L, key, text());
  advance();
}

void LdfParser::appendToParent() { appendToArray(L, -2); }

void LdfParser::appendNames(Names which) {
  while (which == Names::kKeywordsToo ? atName() : atEntryName()) {
    lua_pushstring(L, text());
    appendToArray(L, -2);
    advance();
    skip(',');
  }
}

int parseLdfTree(lua_State* L, LdfScanner& scanner) {
  LdfParser p(L, scanner);
  pushTaggedTable(L, "db");
  p.advance();
  parseFileHead(p);
  for (const SectionRule& rule : kSections)
    if (sectionIsTaken(p, rule)) parseSection(p, rule);
  // Whatever follows the last section is not looked at.
  return 1;
}

}  // namespace q9
