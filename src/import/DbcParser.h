// Reads a whole DBC file into the result tree: a "db" root table whose array
// part holds one table per statement that carries data, in file order.
#pragma once

#include <lua.hpp>

namespace q9 {

struct DbcScanner;

// Pushes the root table and returns 1. A syntax error is raised as a Lua
// error with the message "DBC-Import: (line, column): 'x' expected but found
// 'y'"; running out of memory raises one too and marks the scanner.
int parseDbcTree(lua_State* L, DbcScanner& scanner);

}  // namespace q9
