// The library's function set as one table, for clients that load the
// library at run time and would rather not look up each export by name.
#include "Q9Db.h"

namespace q9 {
namespace {

#define Q9_TABLE_ROW(name) reinterpret_cast<Q9DbFunction>(&name),

const Q9DbFunction kCInterface[] = {
#include "CInterfaceRows.def"
};

#undef Q9_TABLE_ROW

static_assert(sizeof kCInterface / sizeof kCInterface[0] == Q9DB_C_INTERFACE_ROWS,
              "the table has a fixed number of rows");

}  // namespace
}  // namespace q9

extern "C" {

Q9DB_API HRESULT Q9Db_GetCInterface(int32_t version, const Q9DbFunction** out) {
  // Version 2 added nothing a client of version 1 would notice.
  if (version != 1 && version != 2) return E_NOTIMPL;
  if (!out) return E_POINTER;
  *out = q9::kCInterface;
  return S_OK;
}

}  // extern "C"
