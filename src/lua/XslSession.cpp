// The forbidden operations are set up once per session and set on every
// transformation. Every failure becomes a number and a text naming the file
// and the line, the line taken from the processor's message when it gives
// one; a message lost for want of memory reports as out of memory.
#include "lua/XslSession.h"

#include <cctype>
#include <memory>
#include <mutex>

#include <libxml/parser.h>
#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include "Q9Db.h"

namespace q9::xsl {
namespace {

// No NOENT or DTDLOAD: entities stay references rather than being fetched,
// and a DOCTYPE is read but never followed.
constexpr int kLoadOptions = XML_PARSE_NONET;

constexpr xsltSecurityOption kForbidden[] = {
    XSLT_SECPREF_WRITE_FILE, XSLT_SECPREF_CREATE_DIRECTORY, XSLT_SECPREF_READ_NETWORK,
    XSLT_SECPREF_WRITE_NETWORK};

Failure outOfMemory() { return Failure{double(E_OUTOFMEMORY), "Out of memory.\n"}; }

Failure parseFailure(const std::string& fileName, const ParserError& error) {
  return Failure{double(error.code), fileName + " (" + std::to_string(error.line) + ", " +
                                         std::to_string(error.column) + "): " + error.message +
                                         "\n"};
}

// The processor names the line within its messages ("... line 12 ...").
int firstLineMentioned(const std::string& text) {
  for (std::size_t at = text.find("line "); at != std::string::npos;
       at = text.find("line ", at + 1)) {
    std::size_t digits = at + 5;
    int line = 0;
    bool any = false;
    for (; digits < text.size() && std::isdigit(static_cast<unsigned char>(text[digits]));
         ++digits, any = true)
      line = line * 10 + (text[digits] - '0');
    if (any) return line;
  }
  return 0;
}

Failure processorFailure(const std::string& fileName, const std::string& messages,
                         const char* withoutMessages) {
  const std::string description = trimmed(messages);
  if (description.empty()) return Failure{double(E_FAIL), withoutMessages};
  return Failure{double(E_FAIL), fileName + " (" + std::to_string(firstLineMentioned(description)) +
                                     "): " + description + "\n"};
}

}  // namespace

void XslSession::StylesheetRelease::operator()(xsltStylesheet* stylesheet) const {
  xsltFreeStylesheet(stylesheet);
}

XslSession::XslSession() : security_(nullptr) {
  static std::once_flag initialised;
  std::call_once(initialised, [] { xmlInitParser(); });
  security_ = xsltNewSecurityPrefs();
  if (!security_) return;
  for (xsltSecurityOption option : kForbidden)
    xsltSetSecurityPrefs(security_, option, xsltSecurityForbid);
}

XslSession::~XslSession() {
  if (security_) xsltFreeSecurityPrefs(security_);
}

std::optional<Failure> XslSession::load(const std::string& fileName, Document& out) {
  capture_.clear();
  // Owned, since building the failure's text may throw.
  const std::unique_ptr<xmlParserCtxt, void (*)(xmlParserCtxtPtr)> parser(xmlNewParserCtxt(), xmlFreeParserCtxt);
  if (!parser) return outOfMemory();
  out.reset(xmlCtxtReadFile(parser.get(), fileName.c_str(), nullptr, kLoadOptions));
  if (out) return std::nullopt;
  if (capture_.lostMessages()) return outOfMemory();
  ParserError error = capture_.parserError();
  if (!capture_.hasParserError()) {
    const xmlError* last = xmlCtxtGetLastError(parser.get());
    error = last ? ParserError{last->code, last->line, last->int2, trimmed(last->message ? last->message : "")}
                 : ParserError{int(E_FAIL), 0, 0, "the document can't be loaded"};
  }
  return parseFailure(fileName, error);
}

std::optional<Failure> XslSession::compile(const std::string& fileName, Stylesheet& out) {
  Document document;
  if (auto failure = load(fileName, document)) return failure;
  capture_.clear();
  // On success the stylesheet owns the document; on failure it is still ours.
  out.reset(xsltParseStylesheetDoc(document.get()));
  if (out) document.release();
  if (!out || out->errors != 0) {
    out.reset();
    if (capture_.lostMessages()) return outOfMemory();
    return processorFailure(fileName, capture_.text(), "The stylesheet doesn't compile.\n");
  }
  return std::nullopt;
}

std::optional<Failure> XslSession::apply(xsltStylesheet* stylesheet, xmlDoc* input,
                                         const std::string& inputName, Document& out) {
  capture_.clear();
  if (!security_) return outOfMemory();
  xsltTransformContextPtr transformation = xsltNewTransformContext(stylesheet, input);
  if (!transformation) return outOfMemory();
  xsltSetCtxtSecurityPrefs(security_, transformation);
  capture_.listenTo(transformation);
  transformation->parserOptions = kLoadOptions;
  out.reset(xsltApplyStylesheetUser(stylesheet, input, nullptr, nullptr, nullptr, transformation));
  const bool failed = !out || transformation->state != XSLT_STATE_OK;
  xsltFreeTransformContext(transformation);
  if (!failed) return std::nullopt;
  out.reset();
  if (capture_.lostMessages()) return outOfMemory();
  return processorFailure(inputName, capture_.text(),
                          ("Transformation failed (" + inputName + ").").c_str());
}

std::optional<Failure> XslSession::toDocument(xmlDoc* input, const std::string& inputName,
                                              const std::string& stylesheetName, Document& out) {
  Stylesheet stylesheet;
  if (auto failure = compile(stylesheetName, stylesheet)) return failure;
  return apply(stylesheet.get(), input, inputName, out);
}

std::optional<Failure> XslSession::toText(xmlDoc* input, const std::string& inputName,
                                          const std::string& stylesheetName, std::string& out) {
  Stylesheet stylesheet;
  if (auto failure = compile(stylesheetName, stylesheet)) return failure;
  Document result;
  if (auto failure = apply(stylesheet.get(), input, inputName, result)) return failure;
  // Serialised by the stylesheet's output method and encoding.
  xmlChar* bytes = nullptr;
  int length = 0;
  if (xsltSaveResultToString(&bytes, &length, result.get(), stylesheet.get()) != 0)
    return outOfMemory();
  if (bytes)
    out.assign(reinterpret_cast<const char*>(bytes), std::size_t(length));
  else
    out.clear();  // nothing was written
  xmlFree(bytes);
  return std::nullopt;
}

}  // namespace q9::xsl
