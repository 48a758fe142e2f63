/*
 * The library from a C program, in brief: import a description file, then
 * decode one CAN frame into its signals' physical values and texts.
 *   q9db_decode_frame examples/vehicle.dbc 0C8 F91180E70F148200
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Q9Db.h"

/* The library's texts are UTF-16; this example keeps to ASCII. */
static void widen(const char *text, char16_t *out, size_t capacity) {
  size_t i = 0;
  for (; text[i] && i + 1 < capacity; ++i) out[i] = (unsigned char)text[i];
  out[i] = 0;
}

static void print(const char16_t *text) {
  for (; text && *text; ++text) putchar(*text < 0x80 ? (int)*text : '?');
}

/* The first channel of the first cluster: a DBC file imports as one of each. */
static Q9DbNode *firstChannel(Q9DbNode *db) {
  Q9DbEnumerator *clusters = NULL, *children = NULL;
  Q9DbNode *cluster = NULL, *channel = NULL;
  if (Q9Db_enumClusters(db, &clusters) == S_OK && Q9Db_enumeratorNext(clusters, 1, &cluster, NULL) == S_OK &&
      Q9Db_enumChildren(cluster, &children) == S_OK)
    while (Q9Db_enumeratorNext(children, 1, &channel, NULL) == S_OK && Q9Db_getNodeType(channel) != Q9_NODETYPE_Channel)
      channel = NULL;
  Q9Db_enumeratorDestroy(children);
  Q9Db_enumeratorDestroy(clusters);
  return channel;
}

int main(int argc, char **argv) {
  char16_t path[512];
  uint8_t payload[64];
  size_t length = 0;
  Q9DbNode *db = NULL, *channel = NULL;
  Q9DbDecodeEnum *walk = NULL;
  Q9DbDecodedSignal decoded;
  unsigned long id;

  if (argc != 4) {
    fprintf(stderr, "usage: %s FILE ID HEXDATA\n", argv[0]);
    return 2;
  }
  id = strtoul(argv[2], NULL, 16);
  for (; length < sizeof payload && sscanf(argv[3] + 2 * length, "%2hhx", &payload[length]) == 1; ++length) {}

  widen(argv[1], path, sizeof path / sizeof path[0]);
  if (Q9Db_create(u"example", &db) != S_OK || FAILED(Q9Db_importFile(db, NULL, path, NULL, NULL, NULL)) ||
      !(channel = firstChannel(db))) {
    fprintf(stderr, "%s: cannot import\n", argv[1]);
    Q9Db_destroy(db);
    return 1;
  }

  /* One walk per frame: each matching triggering, then its signals. */
  memset(&decoded, 0, sizeof decoded);
  Q9Db_decodeMessage(channel, (uint32_t)id, id > 0x7FF ? Q9_FLAG_CANEXTENDED : Q9_FLAG_CANSTANDARD, length, payload,
                     &walk);
  while (Q9Db_decodeNextFrametriggering(walk, NULL) == S_OK) {
    while (Q9Db_decodeNextSignal(walk, NULL, &decoded) == Q9_NUMERICSIGNAL) {
      Q9DbPhysicalValue value;
      Q9DbNode *unit = NULL;
      const char16_t *name = NULL, *unitName = NULL, *valueText = NULL;
      memset(&value, 0, sizeof value);
      Q9Db_getShortName(decoded.signal, &name);
      print(name);
      if (SUCCEEDED(Q9Db_internalToPhysical(decoded.signal, decoded.value, &value))) {
        if (value.valueType == Q9_VALUETYPE_DOUBLE) printf(" = %g", value.value.d);
        else if (value.valueType == Q9_VALUETYPE_INT64) printf(" = %lld", (long long)value.value.i);
        else printf(" = %llu", (unsigned long long)value.value.u);
      }
      if (Q9Db_getUnit(decoded.signal, &unit) == S_OK && unit &&
          Q9Db_getDisplayName(unit, 0, 65535, &unitName) == S_OK) {
        putchar(' ');
        print(unitName);
      }
      if (value.text && Q9Db_stringLookup(db, value.text, 0, 65535, &valueText) == S_OK) {
        fputs(" (", stdout);
        print(valueText);
        putchar(')');
      }
      putchar('\n');
    }
  }
  Q9Db_destroyDecodeEnum(walk);
  Q9Db_destroy(db);
  return 0;
}
