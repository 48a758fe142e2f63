/*
 * Builds a small CAN network through the factories alone, then walks every
 * list back with enumerators, finds each element again by its id and prints
 * what the database holds. Exits non-zero when anything does not read back.
 */
#include <stdio.h>
#include <string.h>

#include "Q9Db.h"

static int problems = 0;

static void expect(int ok, const char *what) {
  if (!ok) {
    ++problems;
    fprintf(stderr, "problem: %s\n", what);
  }
}

#define MUST(call) expect((call) == S_OK, #call)

/* Wide text to UTF-8 on stdout. */
static void printText(const char16_t *text) {
  if (!text) {
    fputs("(none)", stdout);
    return;
  }
  for (; *text; ++text) {
    unsigned c = *text;
    if (c >= 0xD800 && c <= 0xDBFF && text[1] >= 0xDC00 && text[1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[1] - 0xDC00u);
      ++text;
    }
    if (c < 0x80) {
      putchar((int)c);
    } else if (c < 0x800) {
      putchar((int)(0xC0 | (c >> 6)));
      putchar((int)(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
      putchar((int)(0xE0 | (c >> 12)));
      putchar((int)(0x80 | ((c >> 6) & 0x3F)));
      putchar((int)(0x80 | (c & 0x3F)));
    } else {
      putchar((int)(0xF0 | (c >> 18)));
      putchar((int)(0x80 | ((c >> 12) & 0x3F)));
      putchar((int)(0x80 | ((c >> 6) & 0x3F)));
      putchar((int)(0x80 | (c & 0x3F)));
    }
  }
}

static const char16_t *idOf(Q9DbNode *node) {
  const char16_t *id = NULL;
  Q9Db_getElementId(node, &id);
  return id;
}

/* Every element with an id must be found again under it. */
static void checkFindable(Q9DbNode *db, Q9DbNode *node) {
  Q9DbNode *found = NULL;
  const char16_t *id = idOf(node);
  if (id) expect(Q9Db_findByElementId(db, id, &found) == S_OK && found == node, "find by id");
}

static void indent(int depth) {
  while (depth-- > 0) fputs("  ", stdout);
}

typedef HRESULT (*OpenFn)(Q9DbNode *, Q9DbEnumerator **);

/* Walks one list with a caller-owned enumerator and calls visit per item. */
static void walk(Q9DbNode *db, Q9DbNode *owner, OpenFn open, int depth,
                 void (*visit)(Q9DbNode *db, Q9DbNode *item, int depth)) {
  Q9DbEnumerator storage;
  Q9DbEnumerator *e = &storage;
  Q9DbNode *item = NULL;
  memset(&storage, 0, sizeof storage);
  storage.tag = Q9_ENUMERATOR_TAG_POINTERS;
  if (open(owner, &e) != S_OK) {
    expect(0, "open an enumerator");
    return;
  }
  while (Q9Db_enumeratorNext(e, 1, &item, NULL) == S_OK) visit(db, item, depth);
}

static void printComputation(Q9DbNode *db, Q9DbNode *compu, int depth) {
  Q9DbEnumerator *ranges = NULL;
  Q9DbNode *range = NULL;
  double scale = 0, offset = 0, value = 0;
  indent(depth);
  printf("computation");
  if (idOf(compu)) {
    putchar(' ');
    printText(idOf(compu));
  }
  switch (Q9Db_getNodeType(compu)) {
    case Q9_NODETYPE_LinearComputation:
      Q9Db_getScale(compu, &scale);
      Q9Db_getOffset(compu, &offset);
      printf(": linear, scale %g, offset %g", scale, offset);
      break;
    case Q9_NODETYPE_MappedTextComputation: {
      const char16_t *text = NULL;
      Q9Db_getTextValue(db, compu, 9, 65535, &text);
      fputs(": text \"", stdout);
      printText(text);
      putchar('"');
      break;
    }
    case Q9_NODETYPE_MappedValueComputation:
      Q9Db_getValue(compu, &value);
      printf(": value %g", value);
      break;
    default:
      fputs(": identity", stdout);
  }
  MUST(Q9Db_enumRanges(compu, &ranges));
  while (Q9Db_enumeratorNext(ranges, 1, &range, NULL) == S_OK) {
    double low = 0, high = 0;
    Q9Db_getLowerLimit(range, &low);
    Q9Db_getUpperLimit(range, &high);
    printf(" on [%.10g, %.10g]", low, high);
  }
  Q9Db_enumeratorDestroy(ranges);
  putchar('\n');
}

static void printSignalInstance(Q9DbNode *db, Q9DbNode *instance, int depth) {
  Q9DbNode *signal = NULL, *coding = NULL, *unit = NULL;
  int32_t bitpos = 0, byteOrder = 0, bitlen = 0;
  const char16_t *unitName = NULL;
  double minValue = 0, maxValue = 0;
  Q9Db_getReference(instance, &signal);
  Q9Db_getBitPosition(instance, &bitpos);
  Q9Db_getByteOrder(instance, &byteOrder);
  Q9Db_getReference(signal, &coding);
  Q9Db_getBitLength(coding, &bitlen);
  Q9Db_getUnit(signal, &unit);
  if (unit) Q9Db_getDisplayName(unit, 9, 65535, &unitName);
  Q9Db_getMinValue(signal, &minValue);
  Q9Db_getMaxValue(signal, &maxValue);
  indent(depth);
  fputs("signal ", stdout);
  printText(idOf(signal));
  printf(" at bit %d, %d bits %s, range [%.10g, %.10g] ", bitpos, bitlen,
         byteOrder == Q9_BYTEORDER_BIGENDIAN ? "big-endian" : "little-endian", minValue,
         maxValue);
  printText(unitName ? unitName : u"");
  putchar('\n');
  checkFindable(db, signal);
  walk(db, coding, Q9Db_enumInternalToPhysicalComputations, depth + 1, printComputation);
}

static void printPdu(Q9DbNode *db, Q9DbNode *pdu, int depth);

static void printPart(Q9DbNode *db, Q9DbNode *part, int depth) {
  Q9DbNode *carried = NULL;
  uint32_t code = 0;
  Q9DbEnumerator *segments = NULL;
  Q9DbNode *segment = NULL;
  Q9Db_getSwitchCode(part, &code);
  Q9Db_getReference(part, &carried);
  indent(depth);
  printf("part for switch value %u, bits", (unsigned)code);
  MUST(Q9Db_enumSegments(part, &segments));
  while (Q9Db_enumeratorNext(segments, 1, &segment, NULL) == S_OK) {
    int32_t pos = 0, len = 0;
    Q9Db_getBitPosition(segment, &pos);
    Q9Db_getBitLength(segment, &len);
    printf(" %d..%d", pos, pos + len - 1);
  }
  Q9Db_enumeratorDestroy(segments);
  putchar('\n');
  if (carried) printPdu(db, carried, depth + 1);
}

static void printPdu(Q9DbNode *db, Q9DbNode *pdu, int depth) {
  int32_t bitlen = 0;
  Q9Db_getBitLength(pdu, &bitlen);
  indent(depth);
  fputs("PDU ", stdout);
  printText(idOf(pdu));
  printf(" (%d bits)\n", bitlen);
  checkFindable(db, pdu);
  if (Q9Db_getNodeType(pdu) == Q9_NODETYPE_MultiplexedPDU) {
    Q9DbNode *staticPart = NULL, *elsePart = NULL;
    int32_t pos = 0, len = 0;
    Q9Db_getSwitchPosition(pdu, &pos);
    Q9Db_getSwitchLength(pdu, &len);
    indent(depth + 1);
    printf("selector at bit %d, %d bits\n", pos, len);
    if (Q9Db_getStaticPart(pdu, &staticPart) == S_OK && staticPart) printPart(db, staticPart, depth + 1);
    walk(db, pdu, Q9Db_enumDynamicParts, depth + 1, printPart);
    if (Q9Db_getElsePart(pdu, &elsePart) == S_OK && elsePart) printPart(db, elsePart, depth + 1);
  } else {
    walk(db, pdu, Q9Db_enumSignalInstances, depth + 1, printSignalInstance);
  }
}

static void printPduInstance(Q9DbNode *db, Q9DbNode *instance, int depth) {
  Q9DbNode *pdu = NULL;
  Q9Db_getReference(instance, &pdu);
  printPdu(db, pdu, depth);
}

static void printTiming(Q9DbNode *db, Q9DbNode *timing, int depth) {
  uint64_t cycle = 0;
  int32_t debounce = 0;
  (void)db;
  indent(depth);
  if (Q9Db_getCycletime(timing, &cycle) == S_OK)
    printf("cyclic every %llu ms\n", (unsigned long long)cycle);
  else if (Q9Db_getDebounceTime(timing, &debounce) == S_OK)
    printf("on event, at most every %d ms\n", debounce);
}

static void printPduTriggering(Q9DbNode *db, Q9DbNode *t, int depth) {
  Q9DbNode *pdu = NULL;
  Q9Db_getReference(t, &pdu);
  indent(depth);
  fputs("PDU triggering of ", stdout);
  printText(idOf(pdu));
  putchar('\n');
  walk(db, t, Q9Db_enumChildren, depth + 1, printTiming);
}

static void printFrameTriggering(Q9DbNode *db, Q9DbNode *t, int depth) {
  Q9DbNode *frame = NULL, *ecu = NULL;
  uint32_t identifier = 0, flags = 0;
  int32_t length = 0;
  Q9Db_getFrame(t, &frame);
  Q9Db_getSourceECU(t, &ecu);
  Q9Db_getIdentifier(t, &identifier);
  Q9Db_getFlags(t, &flags);
  Q9Db_getLength(frame, &length);
  indent(depth);
  printf("frame 0x%X (%s) ", (unsigned)identifier,
         (flags & Q9_FLAGMASK_CAN_FRAMETYPE) == Q9_FLAG_CANEXTENDED ? "extended" : "standard");
  printText(idOf(frame));
  printf(", %d bytes, sent by ", length);
  printText(idOf(ecu));
  putchar('\n');
  checkFindable(db, frame);
  walk(db, frame, Q9Db_enumPDUInstances, depth + 1, printPduInstance);
}

static void printChannel(Q9DbNode *db, Q9DbNode *channel, int depth) {
  indent(depth);
  fputs("channel ", stdout);
  printText(idOf(channel));
  putchar('\n');
  checkFindable(db, channel);
  walk(db, channel, Q9Db_enumFrameTriggerings, depth + 1, printFrameTriggering);
  walk(db, channel, Q9Db_enumPDUTriggerings, depth + 1, printPduTriggering);
}

static void printCluster(Q9DbNode *db, Q9DbNode *cluster, int depth) {
  int32_t type = 0;
  static const char *const types[] = {"invalid", "CAN", "FlexRay", "LIN"};
  Q9Db_getClusterType(cluster, &type);
  indent(depth);
  printf("cluster ");
  printText(idOf(cluster));
  printf(" (%s)\n", type >= 0 && type <= Q9_CLUSTERTYPE_MAX ? types[type] : "?");
  checkFindable(db, cluster);
  walk(db, cluster, Q9Db_enumChildren, depth + 1, printChannel);
}

static void printEcu(Q9DbNode *db, Q9DbNode *ecu, int depth) {
  indent(depth);
  fputs("ECU ", stdout);
  printText(idOf(ecu));
  putchar('\n');
  checkFindable(db, ecu);
}

/* A signal with a linear coding placed in a PDU. */
static Q9DbNode *addSignal(Q9DbNode *db, Q9DbNode *pdu, const char16_t *id, int32_t bitpos,
                           int32_t bitlen, int32_t byteOrder, double scale, double offset,
                           double minValue, double maxValue, Q9DbNode *unit) {
  Q9DbNode *coding = NULL, *linear = NULL, *signal = NULL, *instance = NULL;
  char16_t codingId[64] = u"coding ";
  size_t n = 7, i = 0;
  while (id[i] && n < 63) codingId[n++] = id[i++];
  codingId[n] = 0;
  MUST(Q9Db_createCoding(db, codingId, bitlen, 0, unit, &coding));
  MUST(Q9Db_createLinearComputation(db, NULL, scale, offset, &linear));
  MUST(Q9Db_addRange(linear, minValue, maxValue, Q9_FLAG_SIGNALDEFAULT));
  MUST(Q9Db_addInternalToPhysicalComputations(coding, 1, &linear));
  MUST(Q9Db_createSignal(db, id, Q9_FLAG_SIGNALDEFAULT | Q9_FLAG_VALID, 0, minValue, maxValue,
                         coding, &signal));
  MUST(Q9Db_createSignalInstance(db, NULL, byteOrder, bitpos, -1, signal, pdu, &instance));
  return signal;
}

int main(void) {
  Q9DbNode *db = NULL, *cluster = NULL, *channel = NULL, *engine = NULL, *gateway = NULL;
  Q9DbNode *frame = NULL, *trig = NULL, *pdu = NULL, *placement = NULL, *rpm = NULL, *celsius = NULL;
  Q9DbNode *muxFrame = NULL, *muxTrig = NULL, *mux = NULL, *muxPlacement = NULL;
  Q9DbNode *staticPart = NULL, *part1 = NULL, *part2 = NULL, *elsePart = NULL;
  Q9DbNode *pdu1 = NULL, *pdu2 = NULL, *pduElse = NULL, *staticPdu = NULL;
  Q9DbNode *pduTrig = NULL, *timing = NULL, *state = NULL, *stateCoding = NULL;
  Q9DbNode *off = NULL, *on = NULL, *stateInstance = NULL;
  Q9DbStringSlot *offText = NULL, *onText = NULL;
  Q9DbNode *parts[2];
  BSTR qualified = NULL;

  MUST(Q9Db_create(u"demo network", &db));
  MUST(Q9Db_createCluster(db, u"PowertrainCAN", Q9_CLUSTERTYPE_CAN, &cluster));
  MUST(Q9Db_createChannel(db, u"PT-CAN", cluster, &channel));
  MUST(Q9Db_createECU(db, u"EngineControl", &engine));
  MUST(Q9Db_createECU(db, u"Gateway", &gateway));
  MUST(Q9Db_createUnitSpec(db, u"rpm", 9, u"1/min", &rpm));
  MUST(Q9Db_createUnitSpec(db, u"degC", 9, u"\u00b0C", &celsius));

  /* A plain frame: two signals in one PDU. */
  MUST(Q9Db_createFrame(db, u"EngineData", 8, &frame));
  MUST(Q9Db_createIdentifierBasedTriggering(db, NULL, 0x100, Q9_FLAG_CANSTANDARD, frame, engine,
                                            channel, &trig));
  MUST(Q9Db_createPDUInstance(db, NULL, Q9_BYTEORDER_LITTLEENDIAN, 0, -1, NULL, frame, &placement));
  MUST(Q9Db_createSignalPDU(db, u"EngineDataPdu", 64, placement, &pdu));
  addSignal(db, pdu, u"EngineSpeed", 0, 16, Q9_BYTEORDER_LITTLEENDIAN, 0.25, 0, 0, 16383.75, rpm);
  addSignal(db, pdu, u"CoolantTemp", 23, 8, Q9_BYTEORDER_BIGENDIAN, 1, -40, -40, 215, celsius);

  /* A state signal with text values. */
  MUST(Q9Db_createCoding(db, u"coding EngineState", 1, 0, NULL, &stateCoding));
  MUST(Q9Db_stringCreateSlot(db, 9, u"off", &offText));
  MUST(Q9Db_stringCreateSlot(db, 9, u"running", &onText));
  MUST(Q9Db_createMappedTextComputation(db, NULL, offText, &off));
  MUST(Q9Db_addRange(off, 0, 0, Q9_FLAG_SIGNALDEFAULT));
  MUST(Q9Db_createMappedTextComputation(db, NULL, onText, &on));
  MUST(Q9Db_addRange(on, 1, 1, Q9_FLAG_SIGNALDEFAULT));
  parts[0] = off;
  parts[1] = on;
  MUST(Q9Db_addInternalToPhysicalComputations(stateCoding, 2, parts));
  MUST(Q9Db_createSignal(db, u"EngineState", Q9_FLAG_SIGNALDEFAULT, 0, 0, 1, stateCoding, &state));
  MUST(Q9Db_createSignalInstance(db, NULL, 0, 32, -1, state, pdu, &stateInstance));

  /* A multiplexed frame: the selector picks one of two PDUs, else a third. */
  MUST(Q9Db_createFrame(db, u"Diagnostics", 8, &muxFrame));
  MUST(Q9Db_createIdentifierBasedTriggering(db, NULL, 0x18DA10F1, Q9_FLAG_CANEXTENDED, muxFrame,
                                            gateway, channel, &muxTrig));
  MUST(Q9Db_createPDUInstance(db, NULL, 0, 0, -1, NULL, muxFrame, &muxPlacement));
  MUST(Q9Db_createMultiplexedPDU(db, u"DiagMux", 64, Q9_BYTEORDER_LITTLEENDIAN, 0, 8, 0,
                                 muxPlacement, &mux));
  MUST(Q9Db_createMultiplexedPart(db, NULL, 0, mux, &staticPart));
  MUST(Q9Db_addSegment(staticPart, Q9_BYTEORDER_LITTLEENDIAN, 8, 8));
  MUST(Q9Db_createSignalPDU(db, u"DiagCounter", 8, staticPart, &staticPdu));
  addSignal(db, staticPdu, u"Counter", 0, 8, 0, 1, 0, 0, 255, NULL);
  MUST(Q9Db_setStaticPart(mux, staticPart));
  MUST(Q9Db_createMultiplexedPart(db, NULL, 2, mux, &part2));
  MUST(Q9Db_createMultiplexedPart(db, NULL, 1, mux, &part1));
  MUST(Q9Db_createMultiplexedPart(db, NULL, 0, mux, &elsePart));
  MUST(Q9Db_addSegment(part1, 0, 16, 48));
  MUST(Q9Db_addSegment(part2, 0, 16, 48));
  MUST(Q9Db_addSegment(elsePart, 0, 16, 48));
  MUST(Q9Db_createSignalPDU(db, u"DiagVoltages", 48, part1, &pdu1));
  MUST(Q9Db_createSignalPDU(db, u"DiagCurrents", 48, part2, &pdu2));
  MUST(Q9Db_createSignalPDU(db, u"DiagRaw", 48, elsePart, &pduElse));
  addSignal(db, pdu1, u"BatteryVoltage", 0, 16, 0, 0.001, 0, 0, 65.535, NULL);
  addSignal(db, pdu2, u"StarterCurrent", 0, 16, 0, 0.1, -3000, -3000, 3553.5, NULL);
  addSignal(db, pduElse, u"RawData", 0, 48, 0, 1, 0, 0, 281474976710655.0, NULL);
  parts[0] = part2;
  parts[1] = part1;
  MUST(Q9Db_addDynamicParts(mux, 2, parts));
  MUST(Q9Db_setElsePart(mux, elsePart));

  /* The PDU goes out every 100 ms and on change, at most every 20 ms. */
  MUST(Q9Db_createPDUTriggering(db, NULL, pdu, channel, &pduTrig));
  MUST(Q9Db_createCyclicTiming(db, 100, pduTrig, &timing));
  MUST(Q9Db_createEventControlledTiming(db, 20, pduTrig, &timing));

  fputs("database ", stdout);
  printText(idOf(db));
  putchar('\n');
  walk(db, db, Q9Db_enumClusters, 1, printCluster);
  walk(db, db, Q9Db_enumECUs, 1, printEcu);

  MUST(Q9Db_getQualifiedId(state, &qualified));
  fputs("qualified id of the state signal: ", stdout);
  printText(qualified);
  putchar('\n');
  SysFreeString(qualified);

  MUST(Q9Db_destroy(db));
  if (problems) fprintf(stderr, "%d problems\n", problems);
  return problems ? 1 : 0;
}
