// Decodes batches of CAN messages (arrays of identifiers, flags, lengths
// and payloads, as a log reader fills them) through the library's
// whole-frame decoding, one call per batch and channel, into columns: a
// row per decoded signal naming its message, its slot, its value and its
// value text. Every message gets an outcome, so that what wasn't decoded
// is counted and can be told, never just lost.
#ifndef Q9DB_PYTHON_BATCHDECODER_H
#define Q9DB_PYTHON_BATCHDECODER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Catalog.h"
#include "Q9Db.h"

namespace q9py {

constexpr size_t kPayloadStride = 64;  // bytes per message in a batch's payload rows

// Views of the caller's arrays; count entries each (payloads: count rows).
struct MessageBatch {
  size_t count = 0;
  const uint32_t* identifiers = nullptr;
  const uint32_t* flags = nullptr;  // Q9_FLAG_CAN... bits
  const uint8_t* lengths = nullptr;
  const uint8_t* payloads = nullptr;
  const int32_t* buses = nullptr;   // index among the batch's buses; null: all on bus 0
};

enum Outcome : uint8_t {
  kDecoded = 0,          // its signals are rows (a frame without signals has none)
  kUnknown = 1,          // no frame of its identifier is described for its bus
  kLengthMismatch = 2,   // described with another length
  kLoggedAsFd = 3,       // described as a classic CAN frame
  kLoggedAsClassic = 4,  // described as a CAN FD frame
  kIdentifierType = 5,   // described with a standard identifier for an extended one, or the other way round
  kUnboundBus = 6,       // no description serves its bus
};

struct DecodedColumns {
  // Per row.
  std::vector<int32_t> message;
  std::vector<int32_t> slot;
  std::vector<double> value;
  std::vector<int32_t> text;  // -1: none
  std::vector<uint64_t> raw;  // only when asked for
  // Per message: its outcome and the frame decoded or found not to fit (-1).
  std::vector<uint8_t> outcome;
  std::vector<int32_t> frame;
};

class BatchDecoder {
 public:
  explicit BatchDecoder(Catalog& catalog) : catalog_(catalog) {}

  // channelsOfBus[b]: the catalog's channels that decode bus b; an empty
  // list leaves its messages undecoded (kUnboundBus).
  void decode(const MessageBatch& batch, const std::vector<std::vector<uint32_t>>& channelsOfBus, bool withRaw,
              DecodedColumns& out);

 private:
  void decodeOnChannel(const MessageBatch& batch, const std::vector<uint32_t>& messages, uint32_t channel,
                       bool withRaw, DecodedColumns& out);
  void addRecord(const Q9DbSignalRecord& record, int32_t message, uint32_t channel, const Q9DbMessage& source,
                 bool withRaw, DecodedColumns& out);
  void classify(const MessageBatch& batch, size_t message, const std::vector<uint32_t>& channels, bool withRaw,
                DecodedColumns& out);
  void sortRowsByMessage(size_t messages, bool withRaw, DecodedColumns& out);

  Catalog& catalog_;
  std::vector<Q9DbMessage> messages_;
  std::vector<uint32_t> indexes_;
  std::vector<Q9DbSignalRecord> records_ = std::vector<Q9DbSignalRecord>(1 << 16);
};

}  // namespace q9py

#endif
