// What a writer sends to the tool's Output, read back from a scratch file.
#pragma once

#include <cstdio>
#include <string>

#include "Io.h"

template <typename Write>
std::string captured(Write write) {
  FILE* scratch = std::tmpfile();
  {
    q9tool::Output out(fileno(scratch));
    write(out);
  }
  std::string text;
  std::rewind(scratch);
  for (int c; (c = std::fgetc(scratch)) != EOF;) text += static_cast<char>(c);
  std::fclose(scratch);
  return text;
}
