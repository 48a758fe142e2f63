// The exported raw readers: a DBC or LDF file in, its result tree out, on
// the caller's Lua state.
#include "Q9Db.h"
#include "import/DbcParser.h"
#include "import/DbcScanner.h"
#include "import/LdfParser.h"
#include "import/LdfScanner.h"
#include "import/RawImport.h"

namespace q9 {
namespace {

template <typename Scanner, HRESULT (*create)(platform::LexerInput*, Scanner**),
          void (*destroy)(Scanner*), int (*parse)(lua_State*, Scanner&)>
constexpr RawReader makeReader() {
  return RawReader{
      [](platform::LexerInput* input, void** scanner) {
        Scanner* made = nullptr;
        const HRESULT status = create(input, &made);
        *scanner = made;
        return status;
      },
      [](void* scanner) { destroy(static_cast<Scanner*>(scanner)); },
      [](const void* scanner) { return static_cast<const Scanner*>(scanner)->core.outOfMemory; },
      [](const void* scanner) -> const platform::LexerInput* {
        return static_cast<const Scanner*>(scanner)->core.input;
      },
      [](lua_State* L, void* scanner) { return parse(L, *static_cast<Scanner*>(scanner)); },
  };
}

constexpr RawReader kDbcReader =
    makeReader<DbcScanner, createDbcScanner, destroyDbcScanner, parseDbcTree>();
constexpr RawReader kLdfReader =
    makeReader<LdfScanner, createLdfScanner, destroyLdfScanner, parseLdfTree>();

}  // namespace
}  // namespace q9

extern "C" {

Q9DB_API int Q9Db_importRawDBC(lua_State* L, const char16_t* path) {
  return q9::importRaw(L, path, q9::kDbcReader);
}

Q9DB_API int Q9Db_importRawLDF(lua_State* L, const char16_t* path) {
  return q9::importRaw(L, path, q9::kLdfReader);
}

}  // extern "C"
