// The "C" locale is made once and kept for the process, so a conversion
// never touches the global locale, which other threads and the host
// application may be using; if it can't be made, plain strtod stands in.
#include "platform/CNumbers.h"

#include <locale.h>

#include <cstdlib>

namespace q9::platform {

#if defined(_WIN32)
double parseDoubleC(const char* text, char** end) {
  static const _locale_t cLocale = _create_locale(LC_NUMERIC, "C");
  return cLocale ? _strtod_l(text, end, cLocale) : std::strtod(text, end);
}
#else
double parseDoubleC(const char* text, char** end) {
  static const locale_t cLocale = newlocale(LC_NUMERIC_MASK, "C", locale_t(0));
  return cLocale ? strtod_l(text, end, cLocale) : std::strtod(text, end);
}
#endif

double parseDoubleC(const char* text) { return parseDoubleC(text, nullptr); }

}  // namespace q9::platform
