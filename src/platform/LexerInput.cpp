// Paths reach the file system as UTF-8. A folder is refused when it is
// opened rather than at the first read, and a read error is kept apart from
// the end of the file, so a scanner can tell a short file from a broken one.
#include "platform/LexerInput.h"

#include <sys/stat.h>

#include <new>
#include <string>

#include "platform/Heap.h"
#include "platform/WideText.h"

namespace q9::platform {
namespace {

int refillFromFile(LexerInput* input) {
  const std::size_t got = std::fread(input->buffer, 1, kLexerInputBlockSize, input->file);
  input->next = input->buffer;
  input->end = input->buffer + got;
  if (got == 0) {
    if (std::ferror(input->file)) input->readFailed = true;
    return -1;
  }
  return *input->next++;
}

// The file system takes names as UTF-8 bytes; this is all that opening by a
// wide path amounts to here.
std::FILE* openForReading(const char16_t* path) {
  std::string name;
  try {
    name = utf16ToUtf8(path);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  std::FILE* file = std::fopen(name.c_str(), "rb");
  if (!file) return nullptr;
  // Opening a folder succeeds on some systems, and reading it then fails.
  struct stat info {};
  if (fstat(fileno(file), &info) != 0 || S_ISDIR(info.st_mode)) {
    std::fclose(file);
    return nullptr;
  }
  return file;
}

}  // namespace

HRESULT destroyLexerInput(LexerInput* input) {
  if (!input || input->magic != kLexerInputMagic) return E_INVALIDARG;
  input->magic = 0;
  std::fclose(input->file);
  heapFree(input);
  return S_OK;
}

HRESULT openLexerInput(const char16_t* path, LexerInput** out) {
  if (!path || !out) return E_INVALIDARG;
  *out = nullptr;
  void* block = heapAlloc(sizeof(LexerInput));
  if (!block) return E_OUTOFMEMORY;
  std::FILE* file = openForReading(path);
  if (!file) {
    heapFree(block);
    return E_FAIL;
  }
  auto* input = new (block) LexerInput;
  input->magic = kLexerInputMagic;
  input->destroy = destroyLexerInput;
  input->refillAndRead = refillFromFile;
  input->file = file;
  input->end = input->buffer;
  input->next = input->buffer;
  input->readFailed = false;
  *out = input;
  return S_OK;
}

}  // namespace q9::platform
