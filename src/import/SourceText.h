// A description file read whole into memory as UTF-8. Files that are valid
// UTF-8 (with or without a byte order mark) are taken as they are; anything
// else is read as Windows-1252, the code page older tools write. Readers
// scan the text with positions counted in lines and columns from 1.
#pragma once

#include <string>

#include "Q9Db.h"

namespace q9 {

enum class SourceEncoding { Ascii, Utf8, Utf8WithMark, Windows1252 };

struct SourceText {
  std::string text;  // UTF-8, the byte order mark taken off
  SourceEncoding encoding = SourceEncoding::Ascii;
};

// S_OK; E_FAIL when the file can't be opened or read (reason set to the
// system's words); E_OUTOFMEMORY.
HRESULT readSourceText(const std::string& pathUtf8, SourceText& out, std::string& reason);

// The encoding as the report names it: "ASCII", "UTF-8", ...
const char* sourceEncodingName(SourceEncoding encoding);

}  // namespace q9
