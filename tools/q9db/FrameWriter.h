// Decoded frames as text for people (a line per signal, or a line per
// frame), CSV for spreadsheets, or JSON lines for programs (one object per
// frame); the frame's bytes beside the values on request.
#ifndef Q9DB_TOOL_FRAMEWRITER_H
#define Q9DB_TOOL_FRAMEWRITER_H

#include <string_view>

#include "FrameLine.h"
#include "Io.h"
#include "Q9Db.h"

namespace q9tool {

enum class Format { Text, Line, Csv, Json };

struct SignalValue {
  std::string_view name;
  std::string_view value;  // a number, or the text of an ASCII signal
  bool isNumber;           // false: value is text (JSON quotes it)
  std::string_view unit;
  std::string_view text;   // the value's text from the signal's computations
};

// A physical value as a decimal number written into buffer: integers
// exactly, doubles to 15 significant digits (what a double holds for sure),
// so 25.299999999999997 reads 25.3. A signal sent as an IEEE single holds
// fewer: fromSingle gives a value that a single holds exactly its shortest
// form, so 12.6f reads 12.6, not 12.6000003814697. A non-finite double
// gives "nan", "inf" or "-inf"; isFinite tells JSON to write null instead.
std::string_view formatPhysical(const Q9DbPhysicalValue& value, char (&buffer)[40], bool& isFinite,
                                bool fromSingle = false);

class FrameWriter {
 public:
  FrameWriter(Output& out, Format format, bool withBytes = false) : out_(out), format_(format), withBytes_(withBytes) {}

  void begin();  // the CSV header
  void beginFrame(const CanFrame& frame, std::string_view frameName);
  void signal(const SignalValue& value);
  void endFrame();
  // A frame no triggering matched, with its bytes.
  void unknownFrame(const CanFrame& frame);

 private:
  void writeIdentifier(const CanFrame& frame);
  void writeTextHeading(const CanFrame& frame);
  void writeJsonFrameHead(const CanFrame& frame);
  void writeHexBytes(const CanFrame& frame, char separator);
  void writeLength(const CanFrame& frame);
  void writeValue(const SignalValue& v);

  Output& out_;
  Format format_;
  bool withBytes_;
  const CanFrame* frame_ = nullptr;
  std::string_view frameName_;
  bool firstSignal_ = true;
};

}  // namespace q9tool

#endif
