// What makes an LDF frame unusable, said the same way by the import, which
// leaves such a frame out, and by the description of a file, which must not
// list it as if it were there.
#ifndef Q9DB_IMPORT_LDFFRAMECHECKS_H
#define Q9DB_IMPORT_LDFFRAMECHECKS_H

#include <cstdint>
#include <string>

#include "import/ScriptNumbers.h"

namespace q9 {

// Empty for a usable identifier, else why the frame is left out.
inline std::string ldfIdentifierDefect(const std::string& frame, int64_t ident) {
  if (ident >= 0 && ident <= 63) return {};
  return "frame " + frame + ": identifier " + numberText(double(ident)) + " is outside 0 to 63; the frame is left out";
}

// Empty for a length the frame can have, else why it is left out.
inline std::string ldfLengthDefect(const std::string& frame, int64_t bytes) {
  if (bytes >= 1 && bytes <= 8) return {};
  return "frame " + frame + ": a length of " + numberText(double(bytes)) +
         " bytes can't be mapped (1 to 8); the frame is left out";
}

}  // namespace q9

#endif
