// A table by node class appends the class's own details (identifiers, bit
// positions, lengths) after the id, each formatted through a small fixed
// buffer; details and long ids are cut to limits, so no node makes a label
// too long. Nodes a client marked with params 1 to 10 get a fill colour.
#include "inspect/NodeLabel.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iterator>

#include "Q9Db.h"
#include "inspect/DotLabelText.h"
#include "platform/WideText.h"
#include "store/NodeClasses.h"

namespace q9::dot {
namespace {

// Longer ids are cut; the details after the param part as well.
constexpr std::size_t kIdLimit = 1022;
constexpr std::size_t kDetailLimit = 100;

// Fill colours for params 1 to 10, so that nodes a client marked stand out.
constexpr const char* kParamColours[] = {"red",   "pink",  "blue",   "gray",  "yellow",
                                         "brown", "beige", "sienna", "green", "blueviolet"};

struct Languages {
  uint16_t language;
  uint16_t fallback;
};

#if defined(__GNUC__)
__attribute__((format(printf, 2, 3)))
#endif
void appendFormatted(std::u16string& out, const char* format, ...) {
  char buffer[160];
  va_list args;
  va_start(args, format);
  const int n = std::vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  if (n > 0) appendAscii(out, std::string_view(buffer, std::min<std::size_t>(n, sizeof buffer - 1)));
}

// Little-endian shows as i, big-endian as m.
const char* byteOrderLetter(int32_t byteOrder) { return byteOrder == 0 ? "i" : "m"; }

// The details below hold "\\n", a backslash and an n in the file, which a
// label reads as a line break.

template <typename Node>
const Node& the(ObjectBase* node) {
  return *as<Node>(node);
}

void clusterDetail(ObjectBase* n, const Languages&, std::u16string& out) {
  appendFormatted(out, ", type:%i", the<Cluster>(n).clusterType);
}

void identifierDetail(ObjectBase* n, const Languages&, std::u16string& out) {
  const auto& t = the<IdentifierBasedTriggering>(n);
  appendFormatted(out, "\\nidentifier: %i\\nflags: 0x%x", int32_t(t.identifier), t.flags);
}

void maskedIdentifierDetail(ObjectBase* n, const Languages&, std::u16string& out) {
  const auto& t = the<MaskedIdentifierTriggering>(n);
  appendFormatted(out, "\\nmask: %u\\ncode: %u\\nflags: 0x%x", t.mask, t.code, t.flags);
}

template <typename Instance>
void instanceDetail(ObjectBase* n, const Languages&, std::u16string& out) {
  const auto& i = the<Instance>(n);
  appendFormatted(out, "\\nbyteorder: %s\\nbitpos: %i\\nupdatebitpos: %i",
                  byteOrderLetter(i.byteOrder), i.bitpos, i.updateBitpos);
}

void codingDetail(ObjectBase* n, const Languages&, std::u16string& out) {
  const auto& c = the<Coding>(n);
  appendFormatted(out, "\\nbitlen: %i\\nencoding: %i", c.bitlen, int32_t(c.encoding));
}

void frameDetail(ObjectBase* n, const Languages&, std::u16string& out) {
  appendFormatted(out, "\\nlength: %i", the<Frame>(n).length);
}

void unitDetail(ObjectBase* n, const Languages& languages, std::u16string& out) {
  const char16_t* name = nullptr;
  Q9Db_getDisplayName(static_cast<Q9DbNode*>(static_cast<void*>(n)), languages.language,
                      languages.fallback, &name);
  appendAscii(out, "\\ndisplayname: ");
  if (name) appendEscaped(out, name);
}

void signalPduDetail(ObjectBase* n, const Languages&, std::u16string& out) {
  appendFormatted(out, "\\nbitlen: %i", the<SignalPDU>(n).bitlen);
}

void multiplexedPduDetail(ObjectBase* n, const Languages&, std::u16string& out) {
  const auto& p = the<MultiplexedPDU>(n);
  appendFormatted(out, "\\npos: %i:%i %s\\nbitlen: %i", p.switchPosition, p.switchLength,
                  byteOrderLetter(p.switchByteOrder), p.bitlen);
}

struct DetailRow {
  uint32_t nodeType;
  void (*append)(ObjectBase* node, const Languages& languages, std::u16string& out);
};

const DetailRow kDetails[] = {
    {Cluster::kNodeType, clusterDetail},
    {IdentifierBasedTriggering::kNodeType, identifierDetail},
    {MaskedIdentifierTriggering::kNodeType, maskedIdentifierDetail},
    {SignalInstance::kNodeType, instanceDetail<SignalInstance>},
    {PDUInstance::kNodeType, instanceDetail<PDUInstance>},
    {Coding::kNodeType, codingDetail},
    {Frame::kNodeType, frameDetail},
    {UnitSpec::kNodeType, unitDetail},
    {SignalPDU::kNodeType, signalPduDetail},
    {MultiplexedPDU::kNodeType, multiplexedPduDetail},
};

std::u16string idText(ObjectBase* node) {
  std::u16string text;
  if (isA<ElementId>(node) && as<ElementId>(node)->eid) {
    appendEscaped(text, as<ElementId>(node)->eid);
    cutToLimit(text, kIdLimit);
  } else {
    appendFormatted(text, "%p", static_cast<void*>(node));
  }
  return text;
}

std::u16string shortName(ObjectBase* node) {
  std::u16string text;
  if (isA<ElementDetail>(node) && as<ElementDetail>(node)->shortname)
    appendEscaped(text, as<ElementDetail>(node)->shortname);
  return text;
}

}  // namespace

NodeLabel labelOf(ObjectBase* node, uint16_t language, uint16_t fallback) {
  NodeLabel label{{}, nullptr};
  std::u16string detail;
  if (isA<ElementId>(node)) {
    const uint64_t param = as<ElementId>(node)->param;
    if (param != 0) {
      appendFormatted(detail, " (%llu)", static_cast<unsigned long long>(param));
      if (param <= std::size(kParamColours)) label.fill = kParamColours[param - 1];
    }
  }
  const uint32_t type = readTag(node);
  for (const DetailRow& row : kDetails)
    if (row.nodeType == type) row.append(node, Languages{language, fallback}, detail);
  cutToLimit(detail, kDetailLimit);

  const char* className = classNameA(type);
  label.text = className ? className : "";
  label.text += " [";
  label.text += platform::utf16ToUtf8(shortName(node));
  label.text += "]: ";
  label.text += platform::utf16ToUtf8(idText(node));
  label.text += platform::utf16ToUtf8(detail);
  return label;
}

}  // namespace q9::dot
