// The Lua side of a restbus script: the state, the frame object handed to
// before_send and its methods.
//
// Lua raises errors with longjmp, which skips C++ destructors. The functions
// that Lua calls therefore hold no object with a destructor: what needs C++
// containers runs in the noexcept helpers below, which answer plain values
// and a message in a fixed buffer, and the Lua error is raised after they
// have returned. Calls into Lua run under lua_pcall.
#include "RestbusScript.h"

#include <lua.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Nodes.h"
#include "PayloadFields.h"
#include "Q9DbLua.h"
#include "SignalSetting.h"

namespace q9tool {

namespace {

constexpr size_t kProblemSize = 512;
constexpr size_t kLongestText = 64;  // bytes of an ASCII signal shown, a CAN FD payload's worth

// The signals a frame can carry, by index, with the names scripts use.
struct FrameSignals {
  std::vector<Q9DbNode*> nodes;
  std::vector<std::string> names;
  std::unordered_map<Q9DbNode*, size_t> indexOf;
};

// A signal's value as a payload holds it.
struct Reading {
  size_t index;
  bool isText;
  Q9DbPhysicalValue value;
  size_t textLength;
  uint8_t text[kLongestText];
};

bool isText(Q9DbNode* coding) {
  uint32_t encoding = 0;
  return Q9Db_getEncoding(coding, &encoding) == S_OK && encoding == Q9_ENCODING_ASCII;
}

Reading readingOf(const SignalField& field, size_t index) {
  Reading reading{};
  reading.index = index;
  if (isText(field.coding)) {
    reading.isText = true;
    Q9bit_extract(reading.text, field.data, sizeof reading.text, field.pos, field.bits);
    const size_t bytes = std::min<size_t>(kLongestText, size_t(std::abs(field.bits)) / 8);
    // Texts are padded with zeros.
    reading.textLength = size_t(std::find(reading.text, reading.text + bytes, 0) - reading.text);
    return reading;
  }
  const uint64_t raw = PayloadFields::rawValue(field);
  if (FAILED(Q9Db_internalToPhysical(field.signal, raw, &reading.value))) {
    // An encoding the value rules can't read: the raw value.
    reading.value.valueType = Q9_VALUETYPE_UINT64;
    reading.value.value.u = raw;
  }
  return reading;
}

// Collects every signal the payload carries, each once.
class AllSignals : public FieldVisitor {
 public:
  AllSignals(const FrameSignals& signals, std::vector<Reading>& readings) : signals_(signals), readings_(readings) {}
  bool visit(const SignalField& field) override {
    auto found = signals_.indexOf.find(field.signal);
    if (found == signals_.indexOf.end()) return false;
    for (const Reading& reading : readings_)
      if (reading.index == found->second) return false;
    readings_.push_back(readingOf(field, found->second));
    return false;
  }

 private:
  const FrameSignals& signals_;
  std::vector<Reading>& readings_;
};

// Finds one signal's first field, and writes a raw value into all of them
// when given one.
class OneSignal : public FieldVisitor {
 public:
  OneSignal(Q9DbNode* signal, size_t index, const uint64_t* raw) : signal_(signal), index_(index), raw_(raw) {}
  bool visit(const SignalField& field) override {
    if (field.signal != signal_) return false;
    if (!found) reading = readingOf(field, index_);
    found = true;
    if (!raw_) return false;
    PayloadFields::store(field, *raw_);
    return true;
  }
  bool found = false;
  Reading reading{};

 private:
  Q9DbNode* signal_;
  size_t index_;
  const uint64_t* raw_;
};

void copyProblem(char* problem, const char* text) { std::snprintf(problem, kProblemSize, "%s", text); }

// work() with every exception turned into problem and failed: what Lua
// calls must not let one through.
template <typename Result, typename Work>
Result guarded(char* problem, Result failed, Work work) noexcept {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    copyProblem(problem, "not enough memory");
  } catch (const std::exception& e) {
    copyProblem(problem, e.what());
  } catch (...) {
    copyProblem(problem, "unexpected failure");
  }
  return failed;
}

}  // namespace

struct RestbusScript::Session {
  Q9DbNode* db;
  std::string path;
  bool definesBeforeSend = false;
  // Set while before_send runs; frame objects answer only then.
  OutgoingFrame* current = nullptr;
  const FrameSignals* signals = nullptr;
  std::vector<Reading> readings;  // of the payload as the call begins
  std::unordered_map<Q9DbNode*, FrameSignals> frames;
  std::optional<int> exitStatus;  // set by the script's os.exit

  const FrameSignals& signalsOf(Q9DbNode* frame) {
    auto found = frames.find(frame);
    if (found != frames.end()) return found->second;
    FrameSignals& made = frames[frame];
    for (Q9DbNode* signal : frameSignals(frame)) {
      if (!made.indexOf.emplace(signal, made.nodes.size()).second) continue;
      made.nodes.push_back(signal);
      made.names.push_back(displayName(signal));
    }
    return made;
  }

  PayloadFields fieldsOf(OutgoingFrame& frame) const {
    return PayloadFields(frame.frame, frame.identifier, frame.extended, frame.data, frame.length);
  }

  // The index of the current frame's signal called name; false with problem.
  bool find(std::string_view name, size_t& index, char* problem) const {
    for (index = 0; index < signals->names.size(); ++index)
      if (signals->names[index] == name) return true;
    std::snprintf(problem, kProblemSize, "frame %s has no signal named %.*s", current->name->c_str(), int(name.size()),
                  name.data());
    return false;
  }
};

namespace {

using Session = RestbusScript::Session;

// Keys in the registry, by their addresses.
char frameMetatableKey;
char currentFrameKey;

// ---- Helpers that may throw, called from the functions Lua calls --------

enum class Lookup { Found, NotCarried, Failed };

Lookup readSignal(Session& session, std::string_view name, Reading& reading, char* problem) noexcept {
  return guarded(problem, Lookup::Failed, [&] {
    size_t index = 0;
    if (!session.find(name, index, problem)) return Lookup::Failed;
    OneSignal one(session.signals->nodes[index], index, nullptr);
    session.fieldsOf(*session.current).walk(one);
    if (!one.found) return Lookup::NotCarried;
    reading = one.reading;
    return Lookup::Found;
  });
}

bool writeSignal(Session& session, std::string_view name, std::string_view value, char* problem) noexcept {
  return guarded(problem, false, [&] {
    size_t index = 0;
    if (!session.find(name, index, problem)) return false;
    Q9DbNode* signal = session.signals->nodes[index];
    const std::string qualified = *session.current->name + "." + session.signals->names[index];
    Q9DbNode* coding = nullptr;
    if (Q9Db_getReference(signal, &coding) == S_OK && coding && isText(coding)) {
      std::snprintf(problem, kProblemSize, "%s is a text signal; write its bytes with frame:setbyte", qualified.c_str());
      return false;
    }
    uint64_t raw = 0;
    std::string why;
    if (!rawValueFor(session.db, signal, std::string(value), raw, why)) {
      std::snprintf(problem, kProblemSize, "%s: %s", qualified.c_str(), why.c_str());
      return false;
    }
    OneSignal one(signal, index, &raw);
    PayloadFields fields = session.fieldsOf(*session.current);
    fields.walk(one);
    if (!one.found) {
      std::snprintf(problem, kProblemSize,
                    "%s: the payload doesn't carry the signal now: it lies in a multiplexed part that the switch "
                    "doesn't select (or past the payload's end)",
                    qualified.c_str());
      return false;
    }
    if (fields.unstoredBits()) {
      std::snprintf(problem, kProblemSize, "%s: %u bits of its multiplexed part lie outside the payload and stay unset",
                    qualified.c_str(), fields.unstoredBits());
      return false;
    }
    return true;
  });
}

// ---- What Lua calls ------------------------------------------------------

void pushReading(lua_State* L, const Reading& reading) {
  if (reading.isText) {
    lua_pushlstring(L, reinterpret_cast<const char*>(reading.text), reading.textLength);
    return;
  }
  const Q9DbPhysicalValue& value = reading.value;
  if (value.valueType == Q9_VALUETYPE_INT64)
    lua_pushinteger(L, value.value.i);
  else if (value.valueType == Q9_VALUETYPE_UINT64 && value.value.u <= uint64_t(INT64_MAX))
    lua_pushinteger(L, lua_Integer(value.value.u));
  else if (value.valueType == Q9_VALUETYPE_UINT64)
    lua_pushnumber(L, lua_Number(value.value.u));
  else
    lua_pushnumber(L, value.value.d);
}

Session& sessionOf(lua_State* L) { return *static_cast<Session*>(lua_touserdata(L, lua_upvalueindex(1))); }

// The frame being sent, when self is its frame object; else a Lua error:
// an object kept from an earlier call must not write into another payload.
OutgoingFrame& checkFrame(lua_State* L, const char* method) {
  Session& session = sessionOf(L);
  luaL_checktype(L, 1, LUA_TTABLE);
  lua_rawgetp(L, LUA_REGISTRYINDEX, &currentFrameKey);
  const bool current = session.current && lua_rawequal(L, 1, -1);
  lua_pop(L, 1);
  if (!current) luaL_error(L, "frame:%s: this frame was sent already; use the frame of the current call", method);
  return *session.current;
}

int frameGet(lua_State* L) {
  Session& session = sessionOf(L);
  checkFrame(L, "get");
  size_t length = 0;
  const char* name = luaL_checklstring(L, 2, &length);
  Reading reading;
  char problem[kProblemSize];
  switch (readSignal(session, {name, length}, reading, problem)) {
    case Lookup::Found: pushReading(L, reading); return 1;
    case Lookup::NotCarried: lua_pushnil(L); return 1;
    case Lookup::Failed: break;
  }
  return luaL_error(L, "%s", problem);
}

int frameSet(lua_State* L) {
  Session& session = sessionOf(L);
  checkFrame(L, "set");
  size_t nameLength = 0;
  const char* name = luaL_checklstring(L, 2, &nameLength);
  // Numbers go to the value rules as text that reads back exactly.
  char number[40];
  std::string_view value;
  if (lua_type(L, 3) == LUA_TNUMBER) {
    if (lua_isinteger(L, 3)) {
      std::snprintf(number, sizeof number, "%lld", static_cast<long long>(lua_tointeger(L, 3)));
    } else {
      const double d = lua_tonumber(L, 3);
      if (!std::isfinite(d)) return luaL_argerror(L, 3, "a finite number expected");
      std::snprintf(number, sizeof number, "%.17g", d);
    }
    value = number;
  } else if (lua_type(L, 3) == LUA_TSTRING) {
    size_t length = 0;
    const char* text = lua_tolstring(L, 3, &length);
    value = {text, length};
  } else {
    return luaL_argerror(L, 3, lua_pushfstring(L, "number or value text expected, got %s", luaL_typename(L, 3)));
  }
  char problem[kProblemSize];
  if (!writeSignal(session, {name, nameLength}, value, problem)) return luaL_error(L, "%s", problem);
  return 0;
}

int frameBytes(lua_State* L) {
  const OutgoingFrame& frame = checkFrame(L, "bytes");
  lua_pushlstring(L, reinterpret_cast<const char*>(frame.data), frame.length);
  return 1;
}

// Argument index as a byte of the payload, counted from 1.
size_t checkByteIndex(lua_State* L, const OutgoingFrame& frame) {
  const lua_Integer i = luaL_checkinteger(L, 2);
  if (i < 1 || lua_Unsigned(i) > frame.length)
    luaL_argerror(L, 2, lua_pushfstring(L, "byte %I outside 1 .. %I", i, lua_Integer(frame.length)));
  return size_t(i - 1);
}

int frameByte(lua_State* L) {
  const OutgoingFrame& frame = checkFrame(L, "byte");
  lua_pushinteger(L, frame.data[checkByteIndex(L, frame)]);
  return 1;
}

int frameSetByte(lua_State* L) {
  OutgoingFrame& frame = checkFrame(L, "setbyte");
  const size_t at = checkByteIndex(L, frame);
  const lua_Integer value = luaL_checkinteger(L, 3);
  if (value < 0 || value > 255) luaL_argerror(L, 3, lua_pushfstring(L, "byte value %I outside 0 .. 255", value));
  frame.data[at] = uint8_t(value);
  return 0;
}

const luaL_Reg kFrameMethods[] = {{"get", frameGet},     {"set", frameSet},         {"bytes", frameBytes},
                                  {"byte", frameByte},   {"setbyte", frameSetByte}, {nullptr, nullptr}};

// Standard output carries the capture, so print and io.write go to
// standard error.
const char kPrintToStandardError[] =
    "print = function(...)\n"
    "  local n, parts = select('#', ...), {...}\n"
    "  for i = 1, n do parts[i] = tostring(parts[i]) end\n"
    "  io.stderr:write(table.concat(parts, '\\t', 1, n), '\\n')\n"
    "end\n"
    "io.write = function(...) return io.stderr:write(...) end\n";

// os.exit would end the process from inside Lua, and the capture written
// so far would never be flushed: the script's exit ends the simulation
// instead, with the status it asks for (true 0, false 1, or a number).
// The error object is this variable's address.
char exitRequest;
int scriptExit(lua_State* L) {
  auto* session = static_cast<RestbusScript::Session*>(lua_touserdata(L, lua_upvalueindex(1)));
  int status = 0;
  if (lua_isboolean(L, 1)) status = lua_toboolean(L, 1) ? 0 : 1;
  else if (!lua_isnoneornil(L, 1)) status = int(luaL_checkinteger(L, 1));
  session->exitStatus = status;
  lua_pushlightuserdata(L, &exitRequest);
  return lua_error(L);
}

// Argument 1: the session.
int openState(lua_State* L) {
  auto* session = static_cast<Session*>(lua_touserdata(L, 1));
  luaL_openlibs(L);
  // require "Q9Db" gives the library's own module.
  luaL_getsubtable(L, LUA_REGISTRYINDEX, LUA_PRELOAD_TABLE);
  lua_pushcfunction(L, luaopen_Q9Db);
  lua_setfield(L, -2, "Q9Db");
  lua_pop(L, 1);
  if (luaL_loadstring(L, kPrintToStandardError) != LUA_OK) return lua_error(L);
  lua_call(L, 0, 0);
  lua_getglobal(L, "os");
  lua_pushlightuserdata(L, session);
  lua_pushcclosure(L, scriptExit, 1);
  lua_setfield(L, -2, "exit");
  lua_pop(L, 1);
  lua_createtable(L, 0, 1);
  luaL_newlibtable(L, kFrameMethods);
  lua_pushlightuserdata(L, session);
  luaL_setfuncs(L, kFrameMethods, 1);
  lua_setfield(L, -2, "__index");
  lua_rawsetp(L, LUA_REGISTRYINDEX, &frameMetatableKey);
  return 0;
}

// Argument 1: the session.
int runScript(lua_State* L) {
  auto* session = static_cast<Session*>(lua_touserdata(L, 1));
  const char* path = session->path.c_str();
  if (luaL_loadfilex(L, path, "t") != LUA_OK) return lua_error(L);
  lua_call(L, 0, 0);
  const int setup = lua_getglobal(L, "setup");
  if (setup == LUA_TFUNCTION) {
    Q9Db_luaPushNode(L, session->db);
    lua_call(L, 1, 0);
  } else if (setup != LUA_TNIL) {
    return luaL_error(L, "%s: setup is a %s, not a function", path, lua_typename(L, setup));
  }
  const int beforeSend = lua_getglobal(L, "before_send");
  if (beforeSend != LUA_TFUNCTION && beforeSend != LUA_TNIL)
    return luaL_error(L, "%s: before_send is a %s, not a function", path, lua_typename(L, beforeSend));
  session->definesBeforeSend = beforeSend == LUA_TFUNCTION;
  return 0;
}

void setField(lua_State* L, const char* name, lua_Integer value) {
  lua_pushinteger(L, value);
  lua_setfield(L, -2, name);
}

// Argument 1: the session, whose current frame is set.
int callBeforeSend(lua_State* L) {
  const Session& session = *static_cast<Session*>(lua_touserdata(L, 1));
  const OutgoingFrame& frame = *session.current;
  lua_getglobal(L, "before_send");
  lua_createtable(L, 0, 10);
  lua_pushlstring(L, frame.name->data(), frame.name->size());
  lua_setfield(L, -2, "name");
  setField(L, "identifier", frame.identifier);
  lua_pushboolean(L, frame.extended);
  lua_setfield(L, -2, "extended");
  lua_pushboolean(L, frame.fd);
  lua_setfield(L, -2, "fd");
  setField(L, "length", lua_Integer(frame.length));
  lua_pushnumber(L, lua_Number(frame.microseconds) / 1e6);
  lua_setfield(L, -2, "time");
  setField(L, "count", lua_Integer(frame.count));
  Q9Db_luaPushNode(L, frame.frame);
  lua_setfield(L, -2, "node");
  lua_createtable(L, 0, int(session.readings.size()));
  for (const Reading& reading : session.readings) {
    pushReading(L, reading);
    lua_setfield(L, -2, session.signals->names[reading.index].c_str());
  }
  lua_setfield(L, -2, "signals");
  lua_rawgetp(L, LUA_REGISTRYINDEX, &frameMetatableKey);
  lua_setmetatable(L, -2);
  lua_pushvalue(L, -1);
  lua_rawsetp(L, LUA_REGISTRYINDEX, &currentFrameKey);
  lua_call(L, 1, 0);
  return 0;
}

// Runs f(session) protected; false with the error's text in problem.
bool protectedCall(lua_State* L, lua_CFunction f, Session& session, std::string& problem) {
  lua_pushcfunction(L, f);
  lua_pushlightuserdata(L, &session);
  if (lua_pcall(L, 1, 0, 0) == LUA_OK) return true;
  if (lua_touserdata(L, -1) == &exitRequest) {
    problem = "the script ended the simulation (os.exit)";
    lua_pop(L, 1);
    return false;
  }
  // Only a string is read: converting another value could raise here,
  // outside any protected call.
  if (lua_type(L, -1) == LUA_TSTRING)
    problem = lua_tostring(L, -1);
  else
    problem = std::string("(error object is a ") + luaL_typename(L, -1) + " value)";
  lua_pop(L, 1);
  return false;
}

}  // namespace

RestbusScript::RestbusScript(Q9DbNode* db) : session_(std::make_unique<Session>()) { session_->db = db; }

RestbusScript::~RestbusScript() {
  if (L_) lua_close(L_);
}

std::optional<int> RestbusScript::exitStatus() const { return session_->exitStatus; }

bool RestbusScript::load(const std::string& path, std::string& problem) {
  if (!L_) {
    L_ = luaL_newstate();
    if (!L_) {
      problem = "not enough memory for a Lua state";
      return false;
    }
    if (!protectedCall(L_, openState, *session_, problem)) return false;
  }
  session_->path = path;
  return protectedCall(L_, runScript, *session_, problem);
}

bool RestbusScript::definesBeforeSend() const { return session_->definesBeforeSend; }

bool RestbusScript::beforeSend(OutgoingFrame& frame, std::string& problem) {
  if (!L_ || !session_->definesBeforeSend) return true;
  Session& session = *session_;
  try {
    session.signals = &session.signalsOf(frame.frame);
    session.readings.clear();
    session.current = &frame;
    AllSignals all(*session.signals, session.readings);
    session.fieldsOf(frame).walk(all);
  } catch (const std::bad_alloc&) {
    session.current = nullptr;
    problem = "not enough memory for the signals of " + *frame.name;
    return false;
  }
  const bool done = protectedCall(L_, callBeforeSend, session, problem);
  session.current = nullptr;
  return done;
}

}  // namespace q9tool
