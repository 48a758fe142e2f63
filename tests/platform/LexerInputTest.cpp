// The buffered byte source: bytes come out unchanged across block refills,
// a byte can be given back even right after a refill, and only live records
// are destroyed.
#include <gtest/gtest.h>

#include "import/ImportTestSupport.h"
#include "import/ScannerCore.h"
#include "platform/LexerInput.h"

namespace q9::platform {
namespace {

TEST(LexerInput, HandsOutEveryByteAcrossBlocks) {
  std::string content(kLexerInputBlockSize * 2 + 100, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = char(i * 7 + i / 251);
  test::ScratchFile file(content);
  LexerInput* input = nullptr;
  ASSERT_EQ(openLexerInput(file.widePath().c_str(), &input), S_OK);
  std::string read;
  for (int c = readByte(input); c >= 0; c = readByte(input)) {
    read += char(c);
    if (read.size() == kLexerInputBlockSize + 1) {  // the first byte of a fresh block
      unreadByte(input);
      EXPECT_EQ(readByte(input), c);
    }
  }
  EXPECT_EQ(readByte(input), -1);
  EXPECT_FALSE(input->readFailed);
  EXPECT_TRUE(read == content);
  EXPECT_EQ(destroyLexerInput(input), S_OK);
}

// A CR that ends one block and the LF that starts the next are one line end.
TEST(LexerInput, LetsALineEndSpanTwoBlocks) {
  test::ScratchFile file(std::string(kLexerInputBlockSize - 1, ' ') + "\r\nb");
  LexerInput* input = nullptr;
  ASSERT_EQ(openLexerInput(file.widePath().c_str(), &input), S_OK);
  ScannerCore core;
  ASSERT_TRUE(initScannerCore(core, input));
  int c = readChar(core);
  while (c == ' ') c = readChar(core);
  EXPECT_EQ(c, '\n');
  EXPECT_EQ(readChar(core), 'b');
  EXPECT_EQ(core.line, 2u);
  EXPECT_EQ(core.column, 1u);
  freeScannerCore(core);
}

TEST(LexerInput, RefusesWhatIsNoLiveInput) {
  EXPECT_EQ(destroyLexerInput(nullptr), E_INVALIDARG);
  LexerInput fake{};
  EXPECT_EQ(destroyLexerInput(&fake), E_INVALIDARG);
  LexerInput* input = nullptr;
  EXPECT_EQ(openLexerInput(nullptr, &input), E_INVALIDARG);
  EXPECT_EQ(openLexerInput(u"/no/such/file", &input), E_FAIL);
  EXPECT_EQ(input, nullptr);
}

}  // namespace
}  // namespace q9::platform
