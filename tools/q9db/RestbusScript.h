// A restbus script: Lua code that q9db simulate runs before each frame goes
// out, so that alive counters, checksums and other rules of the sending
// ECUs stand in the payload, which the frame encoder alone leaves at their
// start values. The script reaches the library through its own Lua module.
#ifndef Q9DB_TOOL_RESTBUSSCRIPT_H
#define Q9DB_TOOL_RESTBUSSCRIPT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Q9Db.h"

struct lua_State;

namespace q9tool {

// One frame about to go out.
struct OutgoingFrame {
  Q9DbNode* frame;
  const std::string* name;
  uint32_t identifier;
  bool extended;
  bool fd;
  uint64_t microseconds;  // the timestamp of its log line
  uint64_t count;         // sends of this frame before this one
  uint8_t* data;          // the payload, which the script may change
  size_t length;
};

class RestbusScript {
 public:
  // db stays alive and unchanged while the script exists.
  explicit RestbusScript(Q9DbNode* db);
  ~RestbusScript();
  RestbusScript(const RestbusScript&) = delete;
  RestbusScript& operator=(const RestbusScript&) = delete;

  // Runs the file, then its setup(db) if it has one. False with problem,
  // Lua's message, which names the file and the line.
  bool load(const std::string& path, std::string& problem);
  // Whether the script defines before_send; without it frames go out as
  // the encoder makes them.
  bool definesBeforeSend() const;
  // Calls before_send(frame). False with problem as for load.
  bool beforeSend(OutgoingFrame& frame, std::string& problem);
  // The status the script asked for with os.exit, which ends the
  // simulation (load or beforeSend then answers false), not the process.
  std::optional<int> exitStatus() const;

  struct Session;  // what the script's frame objects reach

 private:
  std::unique_ptr<Session> session_;
  lua_State* L_ = nullptr;
};

}  // namespace q9tool

#endif
