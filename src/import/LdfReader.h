// The token-level steps the tolerant LDF reader is made of, shared by its
// section files. A step that meets a token it can't read as meant throws a
// Slip; the loop around an entry catches it, warns once and passes over the
// rest of the entry, so one broken statement costs only itself.
#pragma once

#include <string>
#include <string_view>

#include "import/ImportReport.h"
#include "import/LdfModel.h"
#include "import/LdfTextScanner.h"

namespace q9 {

// What was expected where another token stood.
struct Slip {
  TextPosition at;
  std::string expected;
  std::string found;
};

class LdfReader {
 public:
  LdfReader(std::string_view text, LdfFile& file, ImportReport& report);

  LdfFile& file;
  ImportReport& report;

  const LdfToken& token() const { return token_; }
  const LdfToken& peek();
  void advance();
  bool at(int code) const { return token_.code == code; }
  bool atWord() const { return token_.isWord(); }
  bool accept(int code);
  void expect(int code);  // the token must be code (a character or keyword)
  [[noreturn]] void slip(const std::string& expected) const;

  // Each reads one value and the token behind it. Numbers follow the
  // format's rules; an integer written with a point is taken with a warning.
  // A name is any word, keywords included, as the format has it for
  // publishers, slaves and the like.
  std::string name(const char* what);
  // The name that starts an entry, where the format wants a plain
  // identifier: a keyword there is taken with a warning.
  std::string entryName(const char* what);
  int64_t integer(const char* what);
  // An integer that must be what it says, such as a frame's identifier: one
  // beyond 32 bits is refused as written rather than read as another
  // number, as integer() does.
  int64_t identifier(const char* what);
  double number(const char* what);
  // A string constant; a number standing for it is taken as written, warned.
  std::string text(const char* what);

  // The unit word behind a value ("ms", "kbps"); a missing one is assumed.
  void unit(int keyword, const char* what);
  // ';' ends a statement; where it is missing and the next token starts a
  // new line or closes the block, it is supplied with a warning.
  void endStatement(const char* what);

  // How the entries of a block end: some always with ';' (a signal, a
  // schedule slot, even where braces stand inside), others with ';' or with
  // the '}' of a block of their own (a frame).
  enum class Ends { SemicolonOrBlock, Semicolon };

  // Reads entries until the '}' that closes the block (which stays current)
  // or the end of the text. A Slip inside an entry is warned as one problem
  // of `label()` and the entry passed over.
  template <typename Entry>
  void entries(const char* section, Entry entry, Ends ends = Ends::SemicolonOrBlock) {
    std::string outer = std::move(label_);
    const Ends outerEnds = ends_;
    ends_ = ends;
    while (!at('}') && !at(kTokenEnd)) {
      if (at(';')) {
        warn(token_.at, std::string("a ';' that ends no entry in ") + section + " is ignored");
        advance();
        continue;
      }
      const int depth = depth_;
      label_.clear();
      try {
        entry();
      } catch (const Slip& slip) {
        passOver(slip, depth, section);
      }
    }
    label_ = std::move(outer);
    ends_ = outerEnds;
  }

  // '{', entries, '}' of a block; a block that the text's end leaves open
  // is closed with a warning.
  template <typename Entry>
  void block(const char* section, Entry entry, Ends ends = Ends::SemicolonOrBlock) {
    expect('{');
    entries(section, entry, ends);
    close(section);
  }
  void close(const char* section);

  // Names the entry being read, for the message if it breaks off.
  void label(std::string text) { label_ = std::move(text); }

  // Passes over a statement or block the reader doesn't know, quoting it.
  void skipUnknown(const std::string& what, TextPosition at, const char* start);

  void warn(TextPosition at, const std::string& text) { report.warn(at, text); }
  // The token as a message quotes it.
  static std::string quote(const LdfToken& token);
  // Up to the first 60 characters of the text from start to end, blanks folded.
  static std::string excerpt(const char* start, const char* end);

 private:
  void passOver(const Slip& slip, int depth, const char* section);
  // Skips to the ';' or the block's '}' that ends the statement at depth.
  void skipStatement(int depth);

  void scan(LdfToken& token);
  LdfTextScanner scanner_;
  LdfToken token_;
  LdfToken ahead_;
  bool hasAhead_ = false;
  TextPosition previousEnd_;
  const char* previousEndText_ = nullptr;
  int depth_ = 0;  // braces opened and not yet closed
  Ends ends_ = Ends::SemicolonOrBlock;  // of the entries being read
  std::string label_;
};

// The sections, each from the token behind its keyword (the reader stands
// on '{') to its closing '}' included.
void readNodes(LdfReader& r);
void readDiagnosticAddresses(LdfReader& r);
void readComposite(LdfReader& r);
void readSignals(LdfReader& r);
void readDiagnosticSignals(LdfReader& r);
void readFrames(LdfReader& r);
void readSporadicFrames(LdfReader& r);
void readEventTriggeredFrames(LdfReader& r);
void readDiagnosticFrames(LdfReader& r);
void readNodeAttributes(LdfReader& r);
void readScheduleTables(LdfReader& r);
void readSignalGroups(LdfReader& r);
void readEncodingTypes(LdfReader& r);
void readRepresentations(LdfReader& r);

// "name, offset;" entries of frames and signal groups, up to the '}'.
void readSignalEntries(LdfReader& r, const char* section, std::vector<LdfSignalEntry>& out);

}  // namespace q9
