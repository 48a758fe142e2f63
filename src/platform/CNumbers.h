// Number conversion that ignores the process's locale: description files
// always write a decimal point, whatever the host application has set.
#pragma once

namespace q9::platform {

// strtod of the text as the "C" locale reads it; 0.0 when no number starts it.
double parseDoubleC(const char* text);
// The same, telling where the number ended (text itself when none started).
double parseDoubleC(const char* text, char** end);

}  // namespace q9::platform
