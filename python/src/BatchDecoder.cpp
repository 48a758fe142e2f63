// Messages are decoded per bus and channel in large runs, the record buffer
// growing when one message holds more signals than it. Those no run decoded
// are then matched against the described frames to say why, or decoded at
// their described length when only FD padding differs.
#include "BatchDecoder.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

namespace q9py {
namespace {

constexpr double kNoValue = std::numeric_limits<double>::quiet_NaN();
constexpr size_t kMostRecords = size_t(1) << 24;  // a message of more signals is no message

double asDouble(const Q9DbPhysicalValue& value) {
  switch (value.valueType) {
    case Q9_VALUETYPE_DOUBLE: return value.value.d;
    case Q9_VALUETYPE_UINT64: return static_cast<double>(value.value.u);
    case Q9_VALUETYPE_INT64: return static_cast<double>(value.value.i);
    default: return kNoValue;
  }
}

// The smallest length a CAN FD frame can have that holds length bytes.
size_t canFdLength(size_t length) {
  static const size_t lengths[] = {12, 16, 20, 24, 32, 48, 64};
  if (length <= 8) return length;
  for (size_t l : lengths)
    if (length <= l) return l;
  return 0;
}

bool contains(const std::vector<uint32_t>& list, uint32_t value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

// The text an ASCII signal carries, from the walk, which keeps it (the
// whole-frame records tell only that it is text). Texts are padded with
// zeros.
std::string asciiText(Q9DbNode* channel, const Q9DbMessage& m, const Q9DbNode* instance) {
  auto walk = std::make_unique<Q9DbDecodeEnum>();  // its stack is too big for a thread's stack
  walk->magic = 0;
  Q9DbDecodeEnum* handle = walk.get();
  char buffer[1024];
  Q9DbDecodedSignal decoded{};
  decoded.textBuffer = buffer;
  decoded.textCapacity = sizeof buffer;
  if (Q9Db_decodeMessage(channel, m.identifier, m.flags, m.length, m.payload, &handle) != S_OK) return {};
  for (HRESULT step; (step = Q9Db_decodeNextFrametriggering(handle, nullptr)) >= 0;) {
    for (HRESULT kind; (kind = Q9Db_decodeNextSignal(handle, nullptr, &decoded)) >= 0;) {
      if (kind != Q9_ASCIISIGNAL || decoded.instance != instance) continue;
      std::string text(buffer, std::min<size_t>(decoded.textLength, sizeof buffer));
      return text.substr(0, text.find('\0'));
    }
    if (step == S_FALSE) break;
  }
  return {};
}

}  // namespace

void BatchDecoder::decode(const MessageBatch& batch, const std::vector<std::vector<uint32_t>>& channelsOfBus,
                          bool withRaw, DecodedColumns& out) {
  const size_t n = batch.count;
  out.message.clear();
  out.slot.clear();
  out.value.clear();
  out.text.clear();
  out.raw.clear();
  out.outcome.assign(n, kUnknown);
  out.frame.assign(n, -1);
  for (auto* column : {&out.message, &out.slot, &out.text}) column->reserve(n * 8);
  out.value.reserve(n * 8);
  if (withRaw) out.raw.reserve(n * 8);
  if (channelsOfBus.empty()) throw std::invalid_argument("a batch needs at least one bus");

  // Messages grouped by bus; mostly a batch is one bus.
  std::vector<std::vector<uint32_t>> groups(channelsOfBus.size());
  if (!batch.buses || channelsOfBus.size() == 1) {
    groups[0].resize(n);
    for (size_t i = 0; i < n; ++i) groups[0][i] = uint32_t(i);
  } else {
    for (size_t i = 0; i < n; ++i) {
      const int32_t bus = batch.buses[i];
      if (bus < 0 || size_t(bus) >= groups.size()) throw std::out_of_range("a message names a bus the batch lacks");
      groups[size_t(bus)].push_back(uint32_t(i));
    }
  }
  size_t decodingRuns = 0;
  for (size_t b = 0; b < groups.size(); ++b) {
    if (groups[b].empty()) continue;
    if (channelsOfBus[b].empty()) {
      for (uint32_t i : groups[b]) out.outcome[i] = kUnboundBus;
      continue;
    }
    for (uint32_t channel : channelsOfBus[b]) {
      decodeOnChannel(batch, groups[b], channel, withRaw, out);
      ++decodingRuns;
    }
  }
  const size_t rowsInOrder = out.message.size();
  for (size_t b = 0; b < groups.size(); ++b)
    if (!channelsOfBus[b].empty())
      for (uint32_t i : groups[b])
        if (out.outcome[i] == kUnknown) classify(batch, i, channelsOfBus[b], withRaw, out);
  // Rows of several runs, or added for padded frames, go back into message order.
  if (decodingRuns > 1 || out.message.size() != rowsInOrder) sortRowsByMessage(n, withRaw, out);
}

void BatchDecoder::decodeOnChannel(const MessageBatch& batch, const std::vector<uint32_t>& indexes, uint32_t channel,
                                   bool withRaw, DecodedColumns& out) {
  messages_.resize(indexes.size());
  for (size_t k = 0; k < indexes.size(); ++k) {
    const uint32_t i = indexes[k];
    messages_[k] = {batch.identifiers[i], batch.flags[i], batch.lengths[i], batch.payloads + size_t(i) * kPayloadStride};
  }
  Q9DbNode* node = catalog_.channels()[channel].node;
  size_t done = 0;
  while (done < messages_.size()) {
    uint32_t decoded = 0, count = 0;
    const auto chunk = uint32_t(std::min<size_t>(messages_.size() - done, UINT32_MAX));
    const HRESULT status = Q9Db_decodeFrames(node, messages_.data() + done, chunk, records_.data(),
                                             uint32_t(records_.size()), &decoded, &count);
    if (status == E_INVALIDARG && decoded == 0 && records_.size() < kMostRecords) {
      records_.resize(records_.size() * 4);  // one message holds more than the records
      continue;
    }
    if (FAILED(status)) throw std::runtime_error("the library refused a batch of messages (status " +
                                                 std::to_string(uint32_t(status)) + ")");
    for (uint32_t r = 0; r < count; ++r) {
      const Q9DbSignalRecord& record = records_[r];
      const size_t k = done + record.message;
      addRecord(record, int32_t(indexes[k]), channel, messages_[k], withRaw, out);
    }
    done += decoded;
  }
}

void BatchDecoder::addRecord(const Q9DbSignalRecord& record, int32_t message, uint32_t channel,
                             const Q9DbMessage& source, bool withRaw, DecodedColumns& out) {
  const int32_t frame = record.triggering ? catalog_.frameOf(record.triggering) : -1;
  out.outcome[size_t(message)] = kDecoded;
  if (out.frame[size_t(message)] < 0) out.frame[size_t(message)] = frame;
  double value = record.physical;
  int32_t text = record.text ? catalog_.textCode(record.text) : -1;
  if (record.kind == Q9_ASCIISIGNAL) {
    value = kNoValue;
    text = catalog_.textCode(asciiText(catalog_.channels()[channel].node, source, record.instance));
  } else if (std::isnan(value)) {
    // No computation took the raw value: shown as it is, as the tool shows it.
    Q9DbPhysicalValue physical{};
    if (SUCCEEDED(Q9Db_internalToPhysical(record.signal, record.raw, &physical))) {
      value = asDouble(physical);
      if (physical.text) text = catalog_.textCode(physical.text);
    } else {
      value = static_cast<double>(record.raw);
    }
  }
  out.message.push_back(message);
  out.slot.push_back(int32_t(catalog_.slotOf(frame, channel, record.signal)));
  out.value.push_back(value);
  out.text.push_back(text);
  if (withRaw) out.raw.push_back(record.raw);
}

void BatchDecoder::classify(const MessageBatch& batch, size_t i, const std::vector<uint32_t>& channels, bool withRaw,
                            DecodedColumns& out) {
  const uint32_t identifier = batch.identifiers[i];
  const uint32_t flags = batch.flags[i];
  const size_t length = batch.lengths[i];
  const bool extended = (flags & Q9_FLAGMASK_CAN_FRAMETYPE) == Q9_FLAG_CANEXTENDED;
  const bool fd = flags & Q9_FLAG_CANFD_FRAME;
  bool decoded = false;
  int32_t misfit = -1;
  Outcome why = kUnknown;
  catalog_.forFramesWith(identifier, extended, [&](uint32_t f) {
    const FrameEntry& e = catalog_.frames()[f];
    if (decoded || !contains(channels, e.channelIndex) || e.length < 0) return;
    if (e.fd() == fd && size_t(e.length) == length) {  // described without signals
      decoded = true;
      out.outcome[i] = kDecoded;
      out.frame[i] = int32_t(f);
      return;
    }
    // A CAN FD frame of a length no DLC gives goes out padded to the next one.
    if (fd && e.fd() && size_t(e.length) < length && canFdLength(size_t(e.length)) == length) {
      const Q9DbMessage m{identifier, flags, uint64_t(e.length), batch.payloads + i * kPayloadStride};
      uint32_t count = 0;
      if (FAILED(Q9Db_decodeFrame(catalog_.channels()[e.channelIndex].node, m.identifier, m.flags, m.length, m.payload,
                                  records_.data(), uint32_t(records_.size()), &count)))
        return;
      for (uint32_t r = 0; r < count; ++r) addRecord(records_[r], int32_t(i), e.channelIndex, m, withRaw, out);
      decoded = true;
      out.outcome[i] = kDecoded;
      if (out.frame[i] < 0) out.frame[i] = int32_t(f);
      return;
    }
    if (misfit < 0) {
      misfit = int32_t(f);
      why = e.fd() != fd ? (fd ? kLoggedAsFd : kLoggedAsClassic) : kLengthMismatch;
    }
  });
  if (decoded) return;
  if (misfit < 0) {
    catalog_.forFramesWith(identifier, !extended, [&](uint32_t f) {
      if (misfit < 0 && contains(channels, catalog_.frames()[f].channelIndex)) misfit = int32_t(f), why = kIdentifierType;
    });
  }
  out.outcome[i] = why;
  out.frame[i] = misfit;
}

void BatchDecoder::sortRowsByMessage(size_t messages, bool withRaw, DecodedColumns& out) {
  // A counting sort, stable: rows of a message keep the order they came in.
  std::vector<size_t> start(messages + 1, 0);
  for (int32_t m : out.message) ++start[size_t(m) + 1];
  for (size_t m = 0; m < messages; ++m) start[m + 1] += start[m];
  const size_t rows = out.message.size();
  std::vector<size_t> order(rows);
  for (size_t r = 0; r < rows; ++r) order[start[size_t(out.message[r])]++] = r;
  auto permute = [&](auto& column) {
    auto sorted = column;
    for (size_t r = 0; r < rows; ++r) sorted[r] = column[order[r]];
    column.swap(sorted);
  };
  permute(out.message);
  permute(out.slot);
  permute(out.value);
  permute(out.text);
  if (withRaw) permute(out.raw);
}

}  // namespace q9py
