// The encoder's C interface: creation and release, and one thin call per
// operation of the engine.
#include "encoder/Encoder.h"
#include "encoder/HeapObjects.h"

namespace q9 {
namespace {

CEncode* engineOf(Q9DbEncoder* handle) { return reinterpret_cast<CEncode*>(handle); }

}  // namespace
}  // namespace q9

using namespace q9;

extern "C" {

Q9DB_API HRESULT Q9Db_CreateEncoder(Q9DbNode* db, Q9DbNode* scope, Q9DbEncoder** out) {
  if (!out) return E_POINTER;
  CQ9DbCMD* walker = heapNew<CQ9DbCMD>();
  if (!walker) return E_OUTOFMEMORY;
  const HRESULT known = walker->SetDatabase(db);
  if (FAILED(known)) {
    heapDelete(walker);
    return known;
  }
  CEncode* engine = heapNew<CEncode>(walker);
  if (!engine) {
    heapDelete(walker);
    return E_OUTOFMEMORY;
  }
  const HRESULT ready = engine->Init(scope);
  if (FAILED(ready)) {
    heapDelete(engine);
    return ready;
  }
  *out = reinterpret_cast<Q9DbEncoder*>(engine);
  return S_OK;
}

Q9DB_API HRESULT Q9Db_DestroyEncoder(Q9DbEncoder* encoder) {
  heapDelete(engineOf(encoder));
  return S_OK;
}

#define Q9_ENGINE_OR_FAIL(encoder) \
  CEncode* engine = engineOf(encoder); \
  if (!engine) return E_INVALIDARG

Q9DB_API HRESULT Q9Db_EncoderRegister(Q9DbEncoder* encoder, uint32_t* app) {
  Q9_ENGINE_OR_FAIL(encoder);
  return engine->RegisterApp(app);
}

Q9DB_API HRESULT Q9Db_EncoderDeregister(Q9DbEncoder* encoder, uint32_t app) {
  Q9_ENGINE_OR_FAIL(encoder);
  return engine->DeregisterApp(app);
}

Q9DB_API HRESULT Q9Db_EncoderSetSendMode(Q9DbEncoder* encoder, uint32_t app, uint32_t mode) {
  Q9_ENGINE_OR_FAIL(encoder);
  return engine->SetSendMode(app, mode);
}

Q9DB_API HRESULT Q9Db_EncoderGetSendMode(Q9DbEncoder* encoder, uint32_t app, uint32_t* mode) {
  Q9_ENGINE_OR_FAIL(encoder);
  return engine->GetSendMode(app, mode);
}

Q9DB_API HRESULT Q9Db_EncoderInsert(Q9DbEncoder* encoder, uint32_t app, Q9DbNode* node) {
  Q9_ENGINE_OR_FAIL(encoder);
  return engine->SetNodeActive(app, node, 1);
}

Q9DB_API HRESULT Q9Db_EncoderDelete(Q9DbEncoder* encoder, uint32_t app, Q9DbNode* node) {
  Q9_ENGINE_OR_FAIL(encoder);
  return engine->SetNodeActive(app, node, 0);
}

Q9DB_API HRESULT Q9Db_EncoderIsSignalCyclic(Q9DbEncoder* encoder, Q9DbNode* signal) {
  Q9_ENGINE_OR_FAIL(encoder);
  return engine->IsSignalCyclic(signal);
}

Q9DB_API HRESULT Q9Db_EncoderChangeSignal(Q9DbEncoder* encoder, uint32_t app, Q9DbNode* signal, uint64_t raw) {
  Q9_ENGINE_OR_FAIL(encoder);
  uint8_t image[8];
  for (int i = 0; i < 8; ++i) image[i] = uint8_t(raw >> (8 * i));
  return engine->ChangeSignal(kRunPhase, app, signal, sizeof image, image);
}

Q9DB_API HRESULT Q9Db_EncoderChangeSignalEx(Q9DbEncoder* encoder, uint32_t app, Q9DbNode* signal, uint64_t size,
                                            const uint8_t* data) {
  Q9_ENGINE_OR_FAIL(encoder);
  return engine->ChangeSignal(kRunPhase, app, signal, size, data);
}

Q9DB_API HRESULT Q9Db_EncoderTrigger(Q9DbEncoder* encoder, uint64_t time) {
  Q9_ENGINE_OR_FAIL(encoder);
  return engine->Trigger(kRunPhase, time);
}

Q9DB_API HRESULT Q9Db_EncoderGetChangedFrame(Q9DbEncoder* encoder, Q9DbChangedFrame* out) {
  Q9_ENGINE_OR_FAIL(encoder);
  return engine->GetChangedFrame(out);
}

#undef Q9_ENGINE_OR_FAIL

}  // extern "C"
