// CEncode: the live images of every frame and PDU under a scope node.
// Clients change signals by raw value; the engine writes the bits into the
// PDU images, and each trigger decides by the PDUs' timings which of them go
// into their frames. A client then pulls the frames that changed. There is
// no clock here: time is the number a client passes to Trigger.
//
// A client is an app, a number from 0 to 23 that is nothing but a bit in the
// change masks. Bit 31 marks a change for all clients at once.
#pragma once

#include <cstdint>
#include <mutex>

#include "Q9Db.h"
#include "encoder/EncoderSchedule.h"
#include "encoder/EncoderStore.h"
#include "encoder/MemberWalk.h"
#include "encoder/PduCarriers.h"
#include "encoder/WalkerCommands.h"

namespace q9 {

constexpr uint32_t kAppCount = 24;
constexpr uint32_t kAllClients = 0x80000000u;

// Init writes the defaults in the first phase, clients run in the second.
enum EncoderPhase : uint32_t { kInitPhase = 1, kRunPhase = 2 };

class CEncode {
 public:
  // Takes ownership of the walker, which must already know its database.
  explicit CEncode(CQ9DbCMD* walker) : walker_(walker) {}
  CEncode(const CEncode&) = delete;
  CEncode& operator=(const CEncode&) = delete;

  // Builds the records of the frames and PDUs under scope (null: the whole
  // database) and writes the signals' defaults into them. Fails only for a
  // scope the walk can't start from, or when memory runs out.
  virtual HRESULT Init(void* scope);
  virtual HRESULT RegisterApp(uint32_t* app);
  virtual HRESULT DeregisterApp(uint32_t app);
  virtual HRESULT SetSendMode(uint32_t app, uint32_t mode);
  virtual HRESULT GetSendMode(uint32_t app, uint32_t* mode);
  // One more (on) or one fewer insert of what node stands for: a frame, a
  // frame triggering, a PDU, a signal, an instance, or a source ECU's frames.
  virtual HRESULT SetNodeActive(uint32_t app, void* node, uint32_t on);
  virtual HRESULT IsSignalCyclic(void* node);
  // Writes the raw value (size bytes of data, little-endian) into every
  // instance of the signal. Q9_ENC_NOT_FOUND, Q9_ENC_NO_MATCH: see Q9Db.h.
  virtual HRESULT ChangeSignal(uint32_t phase, uint32_t app, void* signal, uint64_t size, const uint8_t* data);
  virtual HRESULT Trigger(uint32_t phase, uint64_t time);
  virtual HRESULT GetFrameCount(uint32_t* count);
  virtual HRESULT GetFrame(uint32_t index, void** frame);
  virtual HRESULT GetChangedFrame(Q9DbChangedFrame* out);
  virtual ~CEncode();

  // The record of a frame or PDU, or null; for inspection while no other
  // thread uses the encoder.
  const EncoderRecord* RecordOf(const void* node) const {
    const EncoderRecord* frame = frameStore_.Find(node);
    return frame ? frame : pduStore_.Find(node);
  }

 private:
  struct App {
    uint32_t inUse;
    uint8_t mode;
  };

  HRESULT BuildFrameRecords();
  HRESULT BuildPduRecords();
  void WriteDefaults(uint32_t app);
  bool Registered(uint32_t app) const { return app < kAppCount && apps_[app].inUse; }

  HRESULT Activate(void* node, bool on, uint32_t hops);
  HRESULT ActivateMembers(ListOpening open, void* owner, bool on, uint32_t hops);
  HRESULT ActivateFrame(void* frame, bool on);
  HRESULT ActivateSourceFrames(void* ecu, bool on);

  HRESULT SetPduActive(void* pdu, bool on);
  // Marks a PDU record changed; the schedule learns when that makes it due.
  void MarkPdu(uint32_t mask, EncoderRecord& pdu);

  void DrainChanged(uint32_t level);
  void RunTimings(uint32_t level, uint64_t time);
  void RunTiming(EncoderRecord& pdu, uint64_t time);
  void SendUp(EncoderRecord& pdu, bool full);

  EncoderStore frameStore_;
  EncoderStore pduStore_;
  EncoderSchedule schedule_;  // of pduStore_'s records
  PduCarriers carriers_;      // of pduStore_'s records
  CQ9DbCMD* walker_;
  void* scope_ = nullptr;
  uint32_t activeMask_ = kAllClients;
  uint32_t onceMask_ = 0;  // bit n for app n in mode once
  App apps_[kAppCount] = {};
  std::recursive_mutex lock_;
};

}  // namespace q9
