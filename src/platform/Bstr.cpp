// Length-prefixed wide strings that the library hands to clients, who free
// them with SysFreeString. The byte length stands in the 4 bytes in front.
#include <cstring>

#include "Q9Db.h"
#include "platform/Heap.h"

namespace {

BSTR allocateBytes(const void* source, uint32_t byteLength) {
  auto* base = static_cast<unsigned char*>(
      q9::platform::heapAlloc(sizeof(uint32_t) + std::size_t(byteLength) + sizeof(char16_t)));
  if (!base) return nullptr;
  std::memcpy(base, &byteLength, sizeof byteLength);
  unsigned char* text = base + sizeof(uint32_t);
  if (source)
    std::memcpy(text, source, byteLength);
  else
    std::memset(text, 0, byteLength);
  text[byteLength] = 0;
  text[byteLength + 1] = 0;
  return reinterpret_cast<BSTR>(text);
}

unsigned char* baseOf(BSTR text) { return reinterpret_cast<unsigned char*>(text) - sizeof(uint32_t); }

}  // namespace

extern "C" {

Q9DB_API BSTR SysAllocString(const char16_t* text) {
  if (!text) return nullptr;
  uint32_t length = 0;
  while (text[length]) ++length;
  return SysAllocStringLen(text, length);
}

Q9DB_API BSTR SysAllocStringLen(const char16_t* text, uint32_t length) {
  if (length > (UINT32_MAX - 8) / sizeof(char16_t)) return nullptr;
  return allocateBytes(text, length * uint32_t(sizeof(char16_t)));
}

Q9DB_API BSTR SysAllocStringByteLen(const char* bytes, uint32_t byteLength) {
  if (byteLength > UINT32_MAX - 8) return nullptr;
  return allocateBytes(bytes, byteLength);
}

Q9DB_API uint32_t SysStringLen(BSTR text) {
  if (!text) return 0;
  uint32_t bytes;
  std::memcpy(&bytes, baseOf(text), sizeof bytes);
  return bytes / uint32_t(sizeof(char16_t));
}

Q9DB_API void SysFreeString(BSTR text) {
  if (text) q9::platform::heapFree(baseOf(text));
}

}  // extern "C"
