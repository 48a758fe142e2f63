/* Decoding received messages: the signal walk and whole-frame decoding.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_DECODE_H
#define Q9DB_DECODE_H

#include "types.h"
#include "filters.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Message decoding ------------------------------------------------------
 * A pull walk over one received message on a channel:
 *   Q9Db_decodeMessage once; then, until Q9Db_decodeNextFrametriggering
 *   fails, one Q9Db_decodeNextFrametriggering and Q9Db_decodeNextSignal
 *   until that fails.
 * Each matching frame triggering is delivered in turn; the end of the
 * triggerings (S_FALSE) is followed by the channel's own PDU instances, and
 * Q9_E_NOT_FOUND ends each stage. The payload is not copied and must stay
 * valid for the whole walk; the database must not change meanwhile.
 * Heap form: set the pointer variable to NULL, end with
 * Q9Db_destroyDecodeEnum. Caller-owned form: point the variable at your own
 * Q9DbDecodeEnum and never destroy it; the walk itself allocates nothing. */

#define Q9_NUMERICSIGNAL 0
#define Q9_ASCIISIGNAL   1

#define Q9_DECODE_STACK_DEPTH 64
#define Q9_DECODE_BUFFER_SIZE 1024

/* A position in a member list, kept for the walk that owns the record. */
typedef struct Q9DbCursor {
  void *list;
  const void *layout;
  void *block;
  uint64_t index;
} Q9DbCursor;

/* One PDU being decoded: a PDU placed in the payload, or the part of a
 * multiplexed PDU, whose scattered segments are assembled in buffer. */
typedef struct Q9DbDecodeStackEntry {
  uint32_t expanded;
  Q9DbNode *pdu;
  uint32_t bitOffset;
  const uint8_t *data;
  uint8_t buffer[Q9_DECODE_BUFFER_SIZE];
} Q9DbDecodeStackEntry;

/* The state of one message's walk. Read only what the functions give out. */
typedef struct Q9DbDecodeEnum {
  uint32_t magic;
  Q9DbNode *channel;
  uint32_t state;
  uint32_t flags;
  uint32_t identifier;
  uint32_t identifierImage;
  uint64_t length;
  const uint8_t *payload;
  const Q9DbFilter *filter;
  Q9DbNode *triggering;
  Q9DbCursor triggeringWalk;
  Q9DbCursor pduWalk;
  Q9DbCursor instanceWalk;
  uint32_t depth;
  Q9DbDecodeStackEntry stack[Q9_DECODE_STACK_DEPTH];
  uint32_t pushBudget;  /* parts the current PDU instance may still push */
} Q9DbDecodeEnum;

/* One decoded signal. textCapacity and textBuffer are the caller's; an
 * ASCII signal fills textBuffer (not zero-terminated when it is full). */
typedef struct Q9DbDecodedSignal {
  uint64_t value;          /* raw value; 0 for text */
  Q9DbNode *triggering;    /* NULL for the channel's own PDU instances */
  Q9DbNode *instance;
  Q9DbNode *signal;
  uint32_t textLength;     /* bytes of text stored */
  uint32_t textCapacity;
  char *textBuffer;        /* may be NULL: ASCII signals are then passed over */
} Q9DbDecodedSignal;

/* S_OK or E_INVALIDARG. flags: the Q9_FLAG_CAN... bits of the message. */
Q9DB_API HRESULT Q9Db_decodeMessage(Q9DbNode *channel, uint32_t identifier, uint32_t flags, uint64_t length,
                                    const uint8_t *payload, Q9DbDecodeEnum **pEnum);
/* S_OK with the next matching triggering; S_FALSE (out NULL) when they are
 * done and the channel's own PDU instances follow, S_OK from then on;
 * Q9_E_NOT_FOUND after those. out may be NULL. */
Q9DB_API HRESULT Q9Db_decodeNextFrametriggering(Q9DbDecodeEnum *e, Q9DbNode **outTriggering);
/* Q9_NUMERICSIGNAL or Q9_ASCIISIGNAL with out filled, Q9_E_NOT_FOUND at the
 * end of the current stage. A filter, when given, passes a signal if it
 * passes the Signal or the SignalInstance. */
Q9DB_API HRESULT Q9Db_decodeNextSignal(Q9DbDecodeEnum *e, const Q9DbFilter *filter, Q9DbDecodedSignal *out);
/* The current triggering; S_FALSE and NULL when there is none. */
Q9DB_API HRESULT Q9Db_getFrameTriggering(Q9DbDecodeEnum *e, Q9DbNode **out);
/* Frees a heap-form walk. */
Q9DB_API HRESULT Q9Db_destroyDecodeEnum(Q9DbDecodeEnum *e);

/* ---- Whole-frame decoding ----------------------------------------------------
 * Beside the walk: one call decodes a message on a channel into the
 * caller's array, a record per signal the walk would deliver and in its
 * order, with the physical value already converted. The arguments are
 * checked once per message; nothing is allocated. Q9Db_decodeFrames does
 * the same for a batch of messages. */

typedef struct Q9DbSignalRecord {
  Q9DbNode *triggering;     /* the frame triggering; NULL for the channel's own PDU instances */
  Q9DbNode *instance;       /* the signal instance read */
  Q9DbNode *signal;
  uint64_t raw;             /* the raw value; 0 for a text signal */
  double physical;          /* the physical value as a double; NaN for a text signal or a
                               raw value no computation converts */
  Q9DbStringSlot *text;     /* the value's text (Q9Db_stringLookup), or NULL */
  uint32_t kind;            /* Q9_NUMERICSIGNAL or Q9_ASCIISIGNAL (its text: the walk) */
  uint32_t message;         /* Q9Db_decodeFrames: the index of the message in the batch; else 0 */
} Q9DbSignalRecord;

/* S_OK with *count records; S_FALSE when more records were due than
 * capacity holds (*count = capacity; the message's records are cut there);
 * E_INVALIDARG for a channel that is no Channel, a null payload with a
 * length, a null count, or null records with a capacity. A message that no
 * triggering takes gives S_OK and 0 records. */
Q9DB_API HRESULT Q9Db_decodeFrame(Q9DbNode *channel, uint32_t identifier, uint32_t flags, uint64_t length,
                                  const uint8_t *payload, Q9DbSignalRecord *records, uint32_t capacity,
                                  uint32_t *count);

/* One message of a batch. */
typedef struct Q9DbMessage {
  uint32_t identifier;
  uint32_t flags;           /* Q9_FLAG_CAN... bits */
  uint64_t length;
  const uint8_t *payload;
} Q9DbMessage;

/* Decodes messages[0..messageCount) in order into records, each record
 * naming its message. *decoded: the messages whose records were all
 * written; *count: the records written. S_OK when all were; S_FALSE when
 * the records ran out first: only whole messages are written, so the
 * caller goes on from messages + *decoded. E_INVALIDARG as for
 * Q9Db_decodeFrame, for null messages with a count, or for a message too
 * big for the whole of records. */
Q9DB_API HRESULT Q9Db_decodeFrames(Q9DbNode *channel, const Q9DbMessage *messages, uint32_t messageCount,
                                   Q9DbSignalRecord *records, uint32_t capacity, uint32_t *decoded,
                                   uint32_t *count);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_DECODE_H */
