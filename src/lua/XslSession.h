// The steps of one XSL transformation call: load a document, apply a
// stylesheet to a document giving a document, or giving the bytes that the
// stylesheet's output settings produce. Each step reports a failure as the
// number and the text that the script gets to see.
//
// Documents load without validation and without fetching anything named by
// them (external DTDs, entities, network locations); a DTD is accepted. A
// transformation may read local files (document()) but may not write files,
// make folders or touch the network.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <libxml/tree.h>
#include <libxslt/security.h>

#include "lua/XmlErrorCapture.h"

namespace q9::xsl {

struct DocumentRelease {
  void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};
using Document = std::unique_ptr<xmlDoc, DocumentRelease>;

struct Failure {
  double code;       // a status, or the parser's error number
  std::string text;  // names the file and the line
};

class XslSession {
 public:
  XslSession();
  ~XslSession();
  XslSession(const XslSession&) = delete;
  XslSession& operator=(const XslSession&) = delete;

  std::optional<Failure> load(const std::string& fileName, Document& out);
  std::optional<Failure> toDocument(xmlDoc* input, const std::string& inputName,
                                    const std::string& stylesheetName, Document& out);
  std::optional<Failure> toText(xmlDoc* input, const std::string& inputName,
                                const std::string& stylesheetName, std::string& out);

 private:
  struct StylesheetRelease {
    void operator()(xsltStylesheet* stylesheet) const;
  };
  using Stylesheet = std::unique_ptr<xsltStylesheet, StylesheetRelease>;

  std::optional<Failure> compile(const std::string& fileName, Stylesheet& out);
  std::optional<Failure> apply(xsltStylesheet* stylesheet, xmlDoc* input,
                               const std::string& inputName, Document& out);

  XmlErrorCapture capture_;
  xsltSecurityPrefsPtr security_;
};

}  // namespace q9::xsl
