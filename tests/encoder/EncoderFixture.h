// An encoder per test, with helpers to drain its changed frames and to look
// at its images.
#pragma once

#include <string>
#include <vector>

#include "BusFixture.h"
#include "encoder/Encoder.h"

namespace q9::test {

using Bytes = std::vector<uint8_t>;

class EncoderTest : public BusTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(Q9Db_DestroyEncoder(encoder), S_OK);
    BusTest::TearDown();
  }

  void open(Q9DbNode* scope) { ASSERT_EQ(Q9Db_CreateEncoder(handle, scope, &encoder), S_OK); }
  uint32_t registerApp(uint32_t mode = Q9_ENC_MODE_PERIODIC) {
    uint32_t app = 99;
    EXPECT_EQ(Q9Db_EncoderRegister(encoder, &app), S_OK);
    EXPECT_EQ(Q9Db_EncoderSetSendMode(encoder, app, mode), S_OK);
    return app;
  }

  // The ids of the frames handed out until none is left, newest first.
  std::string drain() {
    std::string out;
    Q9DbChangedFrame changed{};
    while (Q9Db_EncoderGetChangedFrame(encoder, &changed) == S_OK)
      out += (out.empty() ? "" : " ") + narrow(as<ElementId>(changed.frame)->eid);
    return out;
  }
  std::string triggerAndDrain(uint64_t time) {
    EXPECT_EQ(Q9Db_EncoderTrigger(encoder, time), S_OK);
    return drain();
  }

  // A signal of its own coding, placed with an update bit (-1: none), whose
  // default reaches the raw value through a scale, and whose raw values
  // read back through the inverse scale.
  Q9DbNode* defaulted(const char16_t* name, Q9DbNode* pdu, int32_t bitpos, int32_t bitlen, double physical,
                      double scale, int32_t updateBit, int32_t byteOrder = Q9_BYTEORDER_LITTLEENDIAN) {
    Q9DbNode* coding = create(Q9Db_createCoding, fresh(), bitlen, Q9_ENCODING_DIRECT, nullptr);
    Q9DbNode *encode = linear(scale, 0), *decode = linear(1 / scale, 0, 0, 65535);
    EXPECT_EQ(Q9Db_addPhysicalToInternalComputations(coding, 1, &encode), S_OK);
    EXPECT_EQ(Q9Db_addInternalToPhysicalComputations(coding, 1, &decode), S_OK);
    Q9DbNode* s = create(Q9Db_createSignal, name, 0, physical, 0, 1000, coding);
    create(Q9Db_createSignalInstance, fresh(), byteOrder, bitpos, updateBit, s, pdu);
    return s;
  }

  // The encoder's current image of a frame or PDU.
  Bytes image(Q9DbNode* node) {
    const EncoderRecord* r = reinterpret_cast<CEncode*>(encoder)->RecordOf(node);
    return r ? Bytes(r->image, r->image + r->byteSize) : Bytes();
  }

  Q9DbEncoder* encoder = nullptr;
};

}  // namespace q9::test
