// The file level of the tolerant LDF reader: the head's statements, the
// sections in whatever order they stand, and what is missing or misplaced.
#include "import/TolerantLdfReader.h"

#include <cctype>
#include <iterator>
#include <new>

#include "import/LdfReader.h"
#include "import/SourceText.h"
#include "platform/CNumbers.h"

namespace q9 {
namespace {

enum class Version { Any, Below2, From2 };

struct SectionRule {
  int keyword;
  void (*read)(LdfReader& r);
  bool required;
  Version version;  // the language versions the section belongs to
};

// In the standard order, which is the rank a section is checked against.
constexpr SectionRule kSections[] = {
    {ldf::Nodes, readNodes, true, Version::Any},
    {ldf::Diagnostic_addresses, readDiagnosticAddresses, false, Version::Below2},
    {ldf::composite, readComposite, false, Version::Any},
    {ldf::Signals, readSignals, true, Version::Any},
    {ldf::Diagnostic_signals, readDiagnosticSignals, false, Version::Any},
    {ldf::Frames, readFrames, true, Version::Any},
    {ldf::Sporadic_frames, readSporadicFrames, false, Version::Any},
    {ldf::Event_triggered_frames, readEventTriggeredFrames, false, Version::Any},
    {ldf::Diagnostic_frames, readDiagnosticFrames, false, Version::Any},
    {ldf::Node_attributes, readNodeAttributes, true, Version::From2},
    {ldf::Schedule_tables, readScheduleTables, true, Version::Any},
    {ldf::Signal_groups, readSignalGroups, false, Version::Any},
    {ldf::Signal_encoding_types, readEncodingTypes, false, Version::Any},
    {ldf::Signal_representation, readRepresentations, false, Version::Any},
};
constexpr int kSectionCount = int(std::size(kSections));

// The head's statements in their standard order.
constexpr int kHeadItems[] = {ldf::LIN_protocol_version, ldf::LIN_language_version, ldf::LIN_speed,
                              ldf::Channel_name};
constexpr int kHeadItemCount = int(std::size(kHeadItems));

int rankOf(const int* table, int count, int keyword) {
  for (int i = 0; i < count; ++i)
    if (table[i] == keyword) return i;
  return -1;
}

int sectionRank(int keyword) {
  for (int i = 0; i < kSectionCount; ++i)
    if (kSections[i].keyword == keyword) return i;
  return -1;
}

class FileReader {
 public:
  FileReader(std::string_view text, LdfFile& file, ImportReport& report)
      : r_(text, file, report), report_(report) {}

  bool read() {
    if (!r_.at(ldf::LIN_description_file)) {
      report_.fail(r_.token().at, "'LIN_description_file' expected, found " + LdfReader::quote(r_.token()) +
                                      ": this is no LIN description file");
      return false;
    }
    r_.advance();
    if (!r_.accept(';'))
      r_.warn(r_.token().at, "';' missing behind LIN_description_file; it is supplied");
    while (!r_.at(kTokenEnd)) {
      if (r_.at('}')) {
        r_.warn(r_.token().at, "a '}' that closes nothing is ignored");
        r_.advance();
        continue;
      }
      r_.entries("the file", [this] { statement(); });
    }
    return finish();
  }

 private:
  void statement() {
    const LdfToken& token = r_.token();
    const TextPosition at = token.at;
    const char* start = token.begin;
    if (rankOf(kHeadItems, kHeadItemCount, token.code) >= 0) return headItem();
    if (firstFound_.empty()) {
      firstAt_ = at;
      firstFound_ = LdfReader::quote(token);
    }
    const int rank = sectionRank(token.code);
    if (rank >= 0) return section(rank);
    if (token.isWord() && r_.peek().code == '{') {
      r_.advance();
      return r_.skipUnknown("the section", at, start);
    }
    r_.skipUnknown("the statement", at, start);
  }

  void headItem() {
    const LdfToken& token = r_.token();
    const int keyword = token.code;
    const TextPosition at = token.at;
    const int rank = rankOf(kHeadItems, kHeadItemCount, keyword);
    const char* word = ldf::keywordText(keyword);
    if (headSeen_[rank])
      r_.warn(at, std::string(word) + " is given twice; the later one counts");
    else if (sectionsSeen_ > 0)
      r_.warn(at, std::string(word) + " stands behind the first section; it is read where it stands");
    else if (rank < headRank_)
      r_.warn(at, std::string(word) + " stands behind " + ldf::keywordText(kHeadItems[headRank_]) +
                      "; it is read where it stands");
    headRank_ = std::max(headRank_, rank);
    headSeen_[rank] = true;
    r_.label(word);
    r_.advance();
    r_.expect('=');
    LdfHeader& head = r_.file.header;
    switch (keyword) {
      case ldf::LIN_protocol_version: head.protocolVersion = r_.text("the protocol version"); break;
      case ldf::LIN_language_version: head.languageVersion = r_.text("the language version"); break;
      case ldf::LIN_speed:
        head.speed = r_.number("the speed");
        r_.unit(ldf::kbps, "the speed");
        break;
      default: head.channelName = r_.text("the channel name"); break;
    }
    r_.endStatement(word);
  }

  void section(int rank) {
    const SectionRule& rule = kSections[rank];
    const LdfToken& token = r_.token();
    const TextPosition at = token.at;
    const char* word = ldf::keywordText(rule.keyword);
    if (r_.peek().code != '{') {
      r_.advance();
      r_.slip("'{'");
    }
    if (seen_[rank]) {
      r_.warn(at, std::string("section ") + word + " appears a second time; its entries are added");
    } else if (rank < highestRank_) {
      r_.warn(at, std::string("section ") + word + " stands behind " +
                      ldf::keywordText(kSections[highestRank_].keyword) + "; it is read where it stands");
    }
    const Version version = languageVersion();
    if ((rule.version == Version::Below2 && version == Version::From2) ||
        (rule.version == Version::From2 && version == Version::Below2))
      r_.warn(at, std::string("section ") + word + " doesn't belong to a file of language version " +
                      r_.file.header.languageVersion + "; it is read all the same");
    seen_[rank] = true;
    highestRank_ = std::max(highestRank_, rank);
    ++sectionsSeen_;
    r_.advance();
    rule.read(r_);
  }

  // Below2 or From2 when the language version is a number; Any when the
  // file names no version or one of another kind.
  Version languageVersion() const {
    const std::string& text = r_.file.header.languageVersion;
    if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0]))) return Version::Any;
    return platform::parseDoubleC(text.c_str()) >= 2.0 ? Version::From2 : Version::Below2;
  }

  bool finish() {
    const TextPosition end = r_.token().at;
    if (!seen_[sectionRank(ldf::Nodes)] && !seen_[sectionRank(ldf::Signals)] &&
        !seen_[sectionRank(ldf::Frames)]) {
      if (firstFound_.empty()) {
        firstAt_ = end;
        firstFound_ = LdfReader::quote(r_.token());
      }
      report_.fail(firstAt_, "'Nodes' expected, found " + firstFound_ +
                                 "; the file describes no nodes, signals or frames");
      return false;
    }
    if (seen_[sectionRank(ldf::Nodes)] && !r_.file.master)
      r_.warn(end, "the Nodes section names no master; the file is read without one");
    static const char* const kHeadWhat[] = {"protocol version", "language version", "speed", nullptr};
    for (int i = 0; i < kHeadItemCount; ++i)
      if (!headSeen_[i] && kHeadWhat[i])
        r_.warn(end, std::string("the file gives no ") + ldf::keywordText(kHeadItems[i]) + "; the " +
                         kHeadWhat[i] + " is taken as " + (i == 2 ? "0 kbps" : "empty"));
    const Version version = languageVersion();
    for (int i = 0; i < kSectionCount; ++i) {
      const SectionRule& rule = kSections[i];
      if (seen_[i] || !rule.required) continue;
      if (rule.version == Version::From2 && version != Version::From2) continue;
      r_.warn(end, std::string("the file has no ") + ldf::keywordText(rule.keyword) + " section");
    }
    return true;
  }

  LdfReader r_;
  ImportReport& report_;
  bool seen_[kSectionCount] = {};
  bool headSeen_[kHeadItemCount] = {};
  int highestRank_ = 0;
  int headRank_ = 0;
  int sectionsSeen_ = 0;
  TextPosition firstAt_;  // of the first statement that isn't part of the head
  std::string firstFound_;
};

}  // namespace

bool readLdfText(std::string_view text, LdfFile& file, ImportReport& report) {
  try {
    return FileReader(text, file, report).read();
  } catch (const Slip& slip) {  // every statement catches its own; this is a last guard
    report.fail(slip.at, slip.expected + " expected, found " + slip.found);
    return false;
  }
}

bool readLdfFile(const std::string& pathUtf8, LdfFile& file, ImportReport& report) {
  SourceText source;
  std::string reason;
  const HRESULT status = readSourceText(pathUtf8, source, reason);
  if (status == E_OUTOFMEMORY) throw std::bad_alloc();
  if (status != S_OK) {
    report.fail({}, "the file can't be read: " + reason);
    return false;
  }
  if (source.encoding != SourceEncoding::Ascii)
    report.info(kSubjectFile, std::string("the file's text is read as ") + sourceEncodingName(source.encoding));
  return readLdfText(source.text, file, report);
}

}  // namespace q9
