// Each iteration's state is a userdata upvalue of its closure, so the
// collector frees it with the closure. An iterator checks the upvalue's size
// before use, since the debug library can swap it, and a node list that
// fails part way answers nil and the status rather than just stopping.
#include "lua/ListIterators.h"

namespace q9::lua {
namespace {

// The upvalue is reachable from scripts only through the debug library; a
// size check keeps a swapped upvalue from being read as a cursor.
template <class T>
T* upvalueRecord(lua_State* L) {
  const int index = lua_upvalueindex(1);
  if (lua_type(L, index) != LUA_TUSERDATA || lua_rawlen(L, index) != sizeof(T)) return nullptr;
  return static_cast<T*>(lua_touserdata(L, index));
}

int iterateNodeList(lua_State* L) {
  auto* e = upvalueRecord<Q9DbEnumerator>(L);
  Q9DbNode* node = nullptr;
  const HRESULT hr = e ? Q9Db_enumeratorNext(e, 1, &node, nullptr) : E_UNEXPECTED;
  if (hr != S_OK) {
    lua_pushnil(L);
    pushStatus(L, hr);
    return 2;
  }
  return pushNode(L, node);
}

int iterateRecordList(lua_State* L) {
  auto* cursor = upvalueRecord<Cursor>(L);
  void* record = nullptr;
  if (!cursor || cursorNextRecords(cursor, 1, &record, nullptr) != S_OK) return 0;
  return pushNode(L, record);
}

}  // namespace

void pushNodeListIterator(lua_State* L, PagedList* list, const BlockLayout* layout) {
  auto* e = static_cast<Q9DbEnumerator*>(lua_newuserdata(L, sizeof(Q9DbEnumerator)));
  *e = Q9DbEnumerator{Q9_ENUMERATOR_TAG_POINTERS, list, layout, list->head, 0};
  lua_pushcclosure(L, iterateNodeList, 1);
}

void pushRecordIterator(lua_State* L, PagedList* list, const BlockLayout* layout) {
  auto* cursor = static_cast<Cursor*>(lua_newuserdata(L, sizeof(Cursor)));
  cursorInit(cursor, layout, list);
  lua_pushcclosure(L, iterateRecordList, 1);
}

int pushEnumeration(lua_State* L, HRESULT (*open)(Q9DbNode*, Q9DbEnumerator**), Q9DbNode* owner) {
  auto* e = static_cast<Q9DbEnumerator*>(lua_newuserdata(L, sizeof(Q9DbEnumerator)));
  *e = Q9DbEnumerator{Q9_ENUMERATOR_TAG_POINTERS, nullptr, nullptr, nullptr, 0};
  Q9DbEnumerator* handle = e;
  const HRESULT hr = open(owner, &handle);
  if (hr != S_OK) {
    lua_pushnil(L);
    pushStatus(L, hr);
    return 2;
  }
  lua_pushcclosure(L, iterateNodeList, 1);
  return 1;
}

}  // namespace q9::lua
