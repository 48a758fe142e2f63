// The folder is found by asking the dynamic loader which file holds this very
// function, with links resolved, so the scripts are looked for beside the
// real library file; tests can name a folder instead.
#include "lua/ModuleFolder.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

#include <cstring>

namespace q9::lua {
namespace {
const char* folderForTesting = nullptr;
}  // namespace

void setModuleFolderForTesting(const char* folder) { folderForTesting = folder; }

void pushModuleFolder(lua_State* L) {
  if (folderForTesting) {
    lua_pushstring(L, folderForTesting);
    return;
  }
  Dl_info info{};
  const char* name = "";
  // The address of this very function lies in the library's own file.
  if (dladdr(reinterpret_cast<void*>(&pushModuleFolder), &info) && info.dli_fname) name = info.dli_fname;
  char resolved[PATH_MAX];
  if (*name && realpath(name, resolved)) name = resolved;
  const char* slash = std::strrchr(name, '/');
  lua_pushlstring(L, name, slash ? std::size_t(slash - name) : std::strlen(name));
}

}  // namespace q9::lua
