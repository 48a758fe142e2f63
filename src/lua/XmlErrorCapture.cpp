// Each message is formatted inside a guard (on the stack when it is short, on
// the heap when not), so one that can't be kept marks the capture as having
// lost a message instead of throwing through the parser's C frames. Only the
// first error-level report becomes the parser error; warnings are dropped.
#include "lua/XmlErrorCapture.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include <libxml/globals.h>
#include <libxslt/xsltutils.h>

#include "platform/Boundary.h"

namespace q9::xsl {
namespace {

thread_local XmlErrorCapture* activeCapture = nullptr;

std::mutex dispatcherMutex;
xmlGenericErrorFunc replacedHandler = nullptr;
void* replacedContext = nullptr;

std::string formatted(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  char small[256];
  const int n = std::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (n < 0) return {};
  if (std::size_t(n) < sizeof small) return std::string(small, std::size_t(n));
  std::string text(std::size_t(n) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, args);
  text.resize(std::size_t(n));
  return text;
}

// The processor reports compile errors through its process-wide handler only.
// This one stands in its place and routes by thread.
void dispatchProcessorMessage(void*, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string message;
  const HRESULT kept = platform::guarded([&] {
    message = formatted(format, args);
    if (activeCapture) activeCapture->append(message);
  });
  va_end(args);
  if (activeCapture) {
    if (kept != S_OK) activeCapture->loseMessage();
    return;
  }
  xmlGenericErrorFunc handler;
  void* context;
  {
    std::lock_guard<std::mutex> lock(dispatcherMutex);
    handler = replacedHandler;
    context = replacedContext;
  }
  if (handler) handler(context, "%s", kept == S_OK ? message.c_str() : "(a message was lost: out of memory)\n");
}

void installDispatcher() {
  std::lock_guard<std::mutex> lock(dispatcherMutex);
  if (xsltGenericError == dispatchProcessorMessage) return;
  replacedHandler = xsltGenericError;
  replacedContext = xsltGenericErrorContext;
  xsltSetGenericErrorFunc(nullptr, dispatchProcessorMessage);
}

}  // namespace

XmlErrorCapture::XmlErrorCapture()
    : outer_(activeCapture),
      savedGeneric_(xmlGenericError),
      savedGenericContext_(xmlGenericErrorContext),
      savedStructured_(xmlStructuredError),
      savedStructuredContext_(xmlStructuredErrorContext) {
  installDispatcher();
  activeCapture = this;
  xmlSetGenericErrorFunc(this, onMessage);
  xmlSetStructuredErrorFunc(this, onStructured);
}

XmlErrorCapture::~XmlErrorCapture() {
  xmlSetStructuredErrorFunc(savedStructuredContext_, savedStructured_);
  xmlSetGenericErrorFunc(savedGenericContext_, savedGeneric_);
  activeCapture = outer_;
}

void XmlErrorCapture::listenTo(xsltTransformContextPtr transformation) {
  xsltSetTransformErrorFunc(transformation, this, onMessage);
}

void XmlErrorCapture::clear() {
  hasParserError_ = false;
  lostMessages_ = false;
  parserError_ = ParserError{};
  text_.clear();
}

void XmlErrorCapture::append(const std::string& message) { text_ += message; }

void XmlErrorCapture::onMessage(void* self, const char* format, ...) {
  auto* capture = static_cast<XmlErrorCapture*>(self);
  va_list args;
  va_start(args, format);
  const HRESULT kept = platform::guarded([&] { capture->append(formatted(format, args)); });
  va_end(args);
  if (kept != S_OK) capture->loseMessage();
}

void XmlErrorCapture::onStructured(void* self, xmlErrorPtr error) {
  auto* capture = static_cast<XmlErrorCapture*>(self);
  // Warnings don't stop a load; what does is an error.
  if (!error || error->level < XML_ERR_ERROR) return;
  const HRESULT kept = platform::guarded([&] {
    const std::string message = error->message ? error->message : "";
    if (!capture->hasParserError_) {
      capture->parserError_ = ParserError{error->code, error->line, error->int2, trimmed(message)};
      capture->hasParserError_ = true;
    }
    capture->append(message);
  });
  if (kept != S_OK) capture->loseMessage();
}

std::string trimmed(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ' ||
                           text.back() == '\t'))
    text.pop_back();
  return text;
}

}  // namespace q9::xsl
