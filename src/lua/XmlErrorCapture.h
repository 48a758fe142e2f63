// Collects what the XML parser and the XSL processor report during one
// transformation, instead of letting them print to the process's stderr.
//
// The parser's handlers are per thread and are swapped in and out around the
// capture's life. The processor's own handler is one for the whole process:
// it is replaced once by a dispatcher that hands each message to the capture
// active on the reporting thread, or to the handler it replaced when none is.
#pragma once

#include <string>

#include <libxml/xmlerror.h>
#include <libxslt/xsltInternals.h>

namespace q9::xsl {

// The first error the parser reported in a structured form.
struct ParserError {
  int code = 0;
  int line = 0;
  int column = 0;
  std::string message;
};

class XmlErrorCapture {
 public:
  XmlErrorCapture();
  ~XmlErrorCapture();
  XmlErrorCapture(const XmlErrorCapture&) = delete;
  XmlErrorCapture& operator=(const XmlErrorCapture&) = delete;

  // Sends what a transformation reports to this capture as well.
  void listenTo(xsltTransformContextPtr transformation);

  // Forgets what was collected, before the next step is run.
  void clear();

  // Whether the parser reported an error since the last clear.
  bool hasParserError() const { return hasParserError_; }
  const ParserError& parserError() const { return parserError_; }
  // All messages in the order they came, as text.
  const std::string& text() const { return text_; }
  void append(const std::string& message);
  // Whether a message since the last clear couldn't be kept for want of
  // memory: the handlers are called by C code, so they throw nothing.
  bool lostMessages() const { return lostMessages_; }
  void loseMessage() { lostMessages_ = true; }

 private:
  static void onStructured(void* self, xmlErrorPtr error);
  static void onMessage(void* self, const char* format, ...);

  bool hasParserError_ = false;
  bool lostMessages_ = false;
  ParserError parserError_;
  std::string text_;
  XmlErrorCapture* outer_;
  xmlGenericErrorFunc savedGeneric_;
  void* savedGenericContext_;
  xmlStructuredErrorFunc savedStructured_;
  void* savedStructuredContext_;
};

// Message text without the line ends and blanks that close it.
std::string trimmed(std::string text);

}  // namespace q9::xsl
