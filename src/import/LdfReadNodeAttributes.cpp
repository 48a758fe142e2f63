// The Node_attributes section: one block per node whose items are read in
// any order, each once; what the standard form would have in another order,
// or lacks, is warned about once.
#include <iterator>

#include "import/LdfReader.h"

namespace q9 {
namespace {

// The items in their standard order.
constexpr int kItems[] = {ldf::LIN_protocol,  ldf::configured_NAD, ldf::initial_NAD,
                          ldf::product_id,    ldf::response_error, ldf::fault_state_signals,
                          ldf::P2_min,        ldf::ST_min,         ldf::N_As_timeout,
                          ldf::N_Cr_timeout,  ldf::configurable_frames};
constexpr int kItemCount = int(std::size(kItems));
constexpr int kProductId = 3;  // rank of product_id: those behind it belong to the full form

int itemRank(int keyword) {
  for (int i = 0; i < kItemCount; ++i)
    if (kItems[i] == keyword) return i;
  return -1;
}

class NodeBlock {
 public:
  NodeBlock(LdfReader& r, LdfNodeAttributes& out) : r_(r), out_(out) {}

  void item() {
    const LdfToken& token = r_.token();
    const TextPosition at = token.at;
    const int rank = itemRank(token.code);
    if (rank < 0) return r_.skipUnknown("the node attribute of " + out_.node, at, token.begin);
    const char* word = ldf::keywordText(token.code);
    if (seen_[rank])
      r_.warn(at, "node attributes of " + out_.node + ": " + word + " is given twice; the later one counts");
    else if (rank < highest_)
      r_.warn(at, "node attributes of " + out_.node + ": " + word + " stands behind " +
                      ldf::keywordText(kItems[highest_]) + "; it is read where it stands");
    seen_[rank] = true;
    highest_ = std::max(highest_, rank);
    r_.label(std::string(word) + " of " + out_.node);
    r_.advance();
    if (kItems[rank] == ldf::configurable_frames) return configurableFrames();
    r_.expect('=');
    value(kItems[rank]);
    r_.endStatement(word);
  }

  // The warnings for what the standard form has and the block lacks.
  void finish() {
    auto missing = [this](int rank, const char* because) {
      if (!seen_[rank])
        r_.warn(out_.at, "node attributes of " + out_.node + " give no " + ldf::keywordText(kItems[rank]) +
                             because);
    };
    missing(0, "; the protocol is not known");
    missing(1, "; 0 is taken");
    if (seen_[kProductId]) {
      missing(4, "");
      missing(10, "");
      return;
    }
    for (int rank = kProductId + 1; rank < kItemCount; ++rank) {
      if (!seen_[rank]) continue;
      r_.warn(out_.at, "node attributes of " + out_.node + " give " + ldf::keywordText(kItems[rank]) +
                           " without product_id; it is read all the same");
      return;
    }
  }

 private:
  void value(int keyword) {
    switch (keyword) {
      case ldf::LIN_protocol:
        // A string or a floating-point number as written.
        if (r_.at(kTokenFloat)) {
          out_.protocol = std::string(r_.token().text);
          r_.advance();
        } else {
          out_.protocol = r_.text("the protocol version");
        }
        break;
      case ldf::configured_NAD: out_.configuredNad = r_.integer("the configured NAD"); break;
      case ldf::initial_NAD: out_.initialNad = r_.integer("the initial NAD"); break;
      case ldf::product_id: {
        LdfProductId id;
        id.supplier = r_.integer("the supplier id");
        r_.expect(',');
        id.function = r_.integer("the function id");
        if (r_.accept(',')) id.variant = r_.integer("the variant");
        out_.productId = id;
        break;
      }
      case ldf::response_error: out_.responseError = r_.name("the response error signal"); break;
      case ldf::fault_state_signals:
        out_.faultStateSignals.clear();
        do {
          out_.faultStateSignals.push_back(r_.name("a fault state signal"));
          r_.accept(',');
        } while (r_.atWord());
        break;
      default: {
        const double ms = r_.number("a time");
        r_.unit(ldf::ms, ldf::keywordText(keyword));
        (keyword == ldf::P2_min         ? out_.p2Min
         : keyword == ldf::ST_min       ? out_.stMin
         : keyword == ldf::N_As_timeout ? out_.nAsTimeout
                                        : out_.nCrTimeout) = ms;
        break;
      }
    }
  }

  void configurableFrames() {
    out_.configurableFrames.clear();
    r_.block("configurable_frames", [this] {
      LdfConfigurableFrame frame;
      frame.at = r_.token().at;
      frame.name = r_.entryName("a configurable frame");
      r_.label("configurable frame " + frame.name);
      if (r_.accept('=')) frame.ident = r_.integer("the message id");
      r_.endStatement(("configurable frame " + frame.name).c_str());
      out_.configurableFrames.push_back(std::move(frame));
    }, LdfReader::Ends::Semicolon);
  }

  LdfReader& r_;
  LdfNodeAttributes& out_;
  bool seen_[kItemCount] = {};
  int highest_ = 0;
};

}  // namespace

void readNodeAttributes(LdfReader& r) {
  r.block("Node_attributes", [&r] {
    LdfNodeAttributes attributes;
    attributes.at = r.token().at;
    attributes.node = r.entryName("a node");
    r.label("the node attributes of " + attributes.node);
    NodeBlock block(r, attributes);
    r.block("the node attributes", [&block] { block.item(); });
    block.finish();
    r.file.nodeAttributes.push_back(std::move(attributes));
  });
}

}  // namespace q9
