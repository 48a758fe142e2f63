/* The frame encoder: live frame images that clients change and collect.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_ENCODER_H
#define Q9DB_ENCODER_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Frame encoder -----------------------------------------------------------
 * Live images of every frame and PDU under a scope node (a Channel, Cluster,
 * Frame or Signal; NULL for the whole database). The client's cycle:
 *   Q9Db_CreateEncoder once; Q9Db_EncoderRegister for an app number;
 *   Q9Db_EncoderSetSendMode; Q9Db_EncoderInsert for what it sends;
 *   Q9Db_EncoderChangeSignal with raw values whenever they change; and at
 *   its own rate Q9Db_EncoderTrigger with the current time, in the unit of
 *   the database's timings, then Q9Db_EncoderGetChangedFrame until S_FALSE.
 * Every operation takes the encoder's own lock, so one thread may change
 * signals while another triggers and collects. The database must not change
 * while an encoder exists; destroy the encoder before the database. */

typedef struct Q9DbEncoder Q9DbEncoder;

/* Send modes of an app. Once: its changes are reported until the first
 * Q9Db_EncoderGetChangedFrame that finds none; a new Q9Db_EncoderSetSendMode
 * brings it back. Periodic: until told otherwise. Off: changes are kept in
 * the images and go out with the next cyclic send. */
#define Q9_ENC_MODE_OFF      0u
#define Q9_ENC_MODE_ONCE     1u
#define Q9_ENC_MODE_PERIODIC 2u

/* Apps are numbered 0 to Q9_ENC_APP_COUNT - 1. A change made as app
 * Q9_ENC_APP_ALL reaches every client, whatever the send modes. */
#define Q9_ENC_APP_COUNT 24u
#define Q9_ENC_APP_ALL   31u

/* Answers of the signal change operations. They are plain positive numbers,
 * not success: NOT_FOUND, the signal has no coding; NO_MATCH, the (last)
 * instance's PDU has no image, or none that a client inserted. */
#define Q9_ENC_NOT_FOUND ((HRESULT)1168)
#define Q9_ENC_NO_MATCH  ((HRESULT)1169)

/* A frame that changed: data points into the encoder's image of the frame,
 * valid until the next trigger that changes the frame or the encoder's
 * destruction. Nothing is copied. */
typedef struct Q9DbChangedFrame {
  Q9DbNode *frame;
  uint64_t size;
  const uint8_t *data;
} Q9DbChangedFrame;

/* S_OK with the new encoder in out; E_INVALIDARG for a db that is no
 * database, or a scope of another class or database; E_POINTER for a null
 * out; E_OUTOFMEMORY. On failure nothing is stored in out. */
Q9DB_API HRESULT Q9Db_CreateEncoder(Q9DbNode *db, Q9DbNode *scope, Q9DbEncoder **out);
/* S_OK, also for NULL. */
Q9DB_API HRESULT Q9Db_DestroyEncoder(Q9DbEncoder *encoder);

/* The rest answer E_INVALIDARG for a NULL encoder. */

/* S_OK with the lowest free app number, in mode off; E_FAIL when all 24 are
 * taken or app is NULL. */
Q9DB_API HRESULT Q9Db_EncoderRegister(Q9DbEncoder *encoder, uint32_t *app);
/* E_FAIL for an app that isn't registered. */
Q9DB_API HRESULT Q9Db_EncoderDeregister(Q9DbEncoder *encoder, uint32_t app);
Q9DB_API HRESULT Q9Db_EncoderSetSendMode(Q9DbEncoder *encoder, uint32_t app, uint32_t mode);
Q9DB_API HRESULT Q9Db_EncoderGetSendMode(Q9DbEncoder *encoder, uint32_t app, uint32_t *mode);
/* Insert and delete count: what was inserted twice stays until deleted
 * twice. node: a Frame, a frame triggering, a SignalPDU, a Signal, a signal
 * or PDU instance, or an ECU (all frames it sends). S_OK; S_FALSE when
 * nothing under the encoder's scope was reached, or for a delete of what
 * isn't inserted. */
Q9DB_API HRESULT Q9Db_EncoderInsert(Q9DbEncoder *encoder, uint32_t app, Q9DbNode *node);
Q9DB_API HRESULT Q9Db_EncoderDelete(Q9DbEncoder *encoder, uint32_t app, Q9DbNode *node);
/* S_OK when a PDU triggering on the way from the signal up to its frame has
 * a cyclic timing; S_FALSE when not. */
Q9DB_API HRESULT Q9Db_EncoderIsSignalCyclic(Q9DbEncoder *encoder, Q9DbNode *signal);
/* Writes the raw value into every instance of the signal whose PDU is
 * inserted, and marks those PDUs as changed by app. S_OK;
 * Q9_ENC_NOT_FOUND; Q9_ENC_NO_MATCH; E_INVALIDARG for no signal, a signal
 * without instances or a coding longer than 64 bits. */
Q9DB_API HRESULT Q9Db_EncoderChangeSignal(Q9DbEncoder *encoder, uint32_t app, Q9DbNode *signal,
                                          uint64_t raw);
/* The same with the value as size bytes, little-endian; bits the data
 * doesn't cover are zero. E_POINTER for NULL data with a size. */
Q9DB_API HRESULT Q9Db_EncoderChangeSignalEx(Q9DbEncoder *encoder, uint32_t app, Q9DbNode *signal,
                                            uint64_t size, const uint8_t *data);
/* Sends the changed PDUs whose timing allows it, and those that came due by
 * their cycle, into their frames. S_OK. */
Q9DB_API HRESULT Q9Db_EncoderTrigger(Q9DbEncoder *encoder, uint64_t time);
/* S_OK with the most recently changed frame not yet reported to the active
 * apps; S_FALSE when none is left. A NULL out answers S_FALSE and leaves
 * the frame for the next caller. */
Q9DB_API HRESULT Q9Db_EncoderGetChangedFrame(Q9DbEncoder *encoder, Q9DbChangedFrame *out);

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_ENCODER_H */
