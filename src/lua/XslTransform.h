// XSLtransform(stylesheets, input) of the scripts' core table: runs the XML
// file input through one stylesheet, or through a table of them in order,
// each reading the document the one before wrote.
//
// Results: the bytes the last stylesheet writes, by its output method and
// encoding; or nil, a number and a text naming the file and the line when a
// document or stylesheet doesn't load or a transformation fails. Raises a
// Lua error for a stylesheets argument that is neither a name nor a table,
// an empty name, a table item that isn't a name, and a failing step of a
// chain other than the last.
#pragma once

#include <lua.hpp>

int Q9Lua_xslTransform(lua_State* L);
