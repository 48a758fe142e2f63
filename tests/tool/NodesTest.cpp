// The tool's walks over a frame's nodes: a database built through the
// interface may hold what no file gives, such as a multiplexed PDU whose
// part carries that PDU again; the walk must end.
#include <gtest/gtest.h>

#include "Nodes.h"
#include "Q9Db.h"

namespace {

TEST(FrameSignals, PartsThatLeadBackIntoTheirPduEnd) {
  Q9DbNode* db = nullptr;
  ASSERT_EQ(Q9Db_create(u"cycle", &db), S_OK);
  Q9DbNode *frame = nullptr, *mux = nullptr, *part = nullptr, *instance = nullptr;
  ASSERT_EQ(Q9Db_createFrame(db, u"Frame", 8, &frame), S_OK);
  ASSERT_EQ(Q9Db_createMultiplexedPDU(db, u"Mux", 64, Q9_BYTEORDER_LITTLEENDIAN, 0, 8, 0, nullptr, &mux), S_OK);
  ASSERT_EQ(Q9Db_createMultiplexedPart(db, u"Part", 1, mux, &part), S_OK);
  ASSERT_EQ(Q9Db_addDynamicParts(mux, 1, &part), S_OK);
  ASSERT_EQ(Q9Db_setReference(part, mux), S_OK);  // the part carries its own PDU
  ASSERT_EQ(Q9Db_createPDUInstance(db, u"Instance", Q9_BYTEORDER_LITTLEENDIAN, 0, -1, mux, frame, &instance), S_OK);
  EXPECT_TRUE(q9tool::frameSignals(frame).empty());
  Q9Db_destroy(db);
}

}  // namespace
