// Numbers are printed by to_chars as "%.15g" would print them, without "-0",
// and a value read from a single in the single's shortest form. CSV repeats
// the frame on every row, and an unknown frame keeps the header's columns.
#include "FrameWriter.h"

#include <charconv>
#include <cmath>

#include "TextEscapes.h"

namespace q9tool {
namespace {

const char kHexDigits[] = "0123456789ABCDEF";

}  // namespace

std::string_view formatPhysical(const Q9DbPhysicalValue& value, char (&buffer)[40], bool& isFinite,
                                bool fromSingle) {
  isFinite = true;
  std::to_chars_result end{buffer, std::errc()};
  switch (value.valueType) {
    case Q9_VALUETYPE_UINT64:
      end = std::to_chars(buffer, buffer + sizeof buffer, value.value.u);
      break;
    case Q9_VALUETYPE_INT64:
      end = std::to_chars(buffer, buffer + sizeof buffer, value.value.i);
      break;
    case Q9_VALUETYPE_DOUBLE: {
      double d = value.value.d;
      isFinite = std::isfinite(d);
      if (!isFinite) return std::isnan(d) ? "nan" : d > 0 ? "inf" : "-inf";
      if (fromSingle && static_cast<double>(static_cast<float>(d)) == d) {
        end = std::to_chars(buffer, buffer + sizeof buffer, d == 0.0 ? 0.0f : static_cast<float>(d));
        break;
      }
      // As "%.15g" prints it, without printf's cost; no "-0".
      end = std::to_chars(buffer, buffer + sizeof buffer, d == 0.0 ? 0.0 : d, std::chars_format::general, 15);
      break;
    }
    default:
      isFinite = false;
      return "?";
  }
  return std::string_view(buffer, static_cast<size_t>(end.ptr - buffer));
}

void FrameWriter::begin() {
  if (format_ == Format::Csv)
    out_.write(withBytes_ ? "timestamp,interface,identifier,frame,data,signal,value,unit,text\n"
                          : "timestamp,interface,identifier,frame,signal,value,unit,text\n");
}

void FrameWriter::writeIdentifier(const CanFrame& frame) {
  char digits[8];
  int count = (frame.flags & Q9_FLAG_CANEXTENDED) ? 8 : 3;
  uint32_t id = frame.identifier;
  for (int i = count - 1; i >= 0; --i, id >>= 4) digits[i] = kHexDigits[id & 0xF];
  out_.write(std::string_view(digits, static_cast<size_t>(count)));
}

void FrameWriter::writeHexBytes(const CanFrame& frame, char separator) {
  for (unsigned i = 0; i < frame.length; ++i) {
    if (i > 0 && separator) out_.write(separator);
    char pair[2] = {kHexDigits[frame.data[i] >> 4], kHexDigits[frame.data[i] & 0xF]};
    out_.write(std::string_view(pair, 2));
  }
}

void FrameWriter::writeLength(const CanFrame& frame) {
  char digits[4];
  out_.write('[');
  out_.write(std::string_view(digits, static_cast<size_t>(std::to_chars(digits, digits + 4, frame.length).ptr - digits)));
  out_.write(']');
}

void FrameWriter::writeJsonFrameHead(const CanFrame& frame) {
  out_.write("{\"timestamp\":");
  if (frame.timestamp.empty()) out_.write("null");
  else out_.write(frame.timestamp);  // digits with one dot at most: a JSON number
  out_.write(",\"interface\":");
  writeJsonString(out_, frame.interface);
  out_.write(",\"identifier\":\"");
  writeIdentifier(frame);
  out_.write("\",\"extended\":");
  out_.write((frame.flags & Q9_FLAG_CANEXTENDED) ? "true" : "false");
  out_.write(",\"fd\":");
  out_.write((frame.flags & Q9_FLAG_CANFD_FRAME) ? "true" : "false");
}

// "[timestamp ]interface identifier", the start of a frame's text line.
void FrameWriter::writeTextHeading(const CanFrame& frame) {
  if (!frame.timestamp.empty()) {
    out_.write(frame.timestamp);
    out_.write(' ');
  }
  out_.write(frame.interface);
  out_.write(' ');
  writeIdentifier(frame);
}

void FrameWriter::beginFrame(const CanFrame& frame, std::string_view frameName) {
  frame_ = &frame;
  frameName_ = frameName;
  firstSignal_ = true;
  switch (format_) {
    case Format::Text:
    case Format::Line:
      writeTextHeading(frame);
      if (withBytes_) {
        out_.write(' ');
        writeLength(frame);
        out_.write(' ');
        writeHexBytes(frame, format_ == Format::Text ? ' ' : 0);
      }
      out_.write(' ');
      out_.write(frameName);
      if (format_ == Format::Text) out_.write('\n');
      else out_.write(':');
      break;
    case Format::Json:
      writeJsonFrameHead(frame);
      out_.write(",\"frame\":");
      writeJsonString(out_, frameName);
      if (withBytes_) {
        out_.write(",\"data\":\"");
        writeHexBytes(frame, 0);
        out_.write('"');
      }
      out_.write(",\"signals\":[");
      break;
    case Format::Csv:
      break;  // each row repeats the frame
  }
}

// value[ unit][ (text)], a text value in quotes.
void FrameWriter::writeValue(const SignalValue& v) {
  if (!v.isNumber) out_.write('"');
  out_.write(v.value);
  if (!v.isNumber) out_.write('"');
  if (!v.unit.empty()) {
    out_.write(' ');
    out_.write(v.unit);
  }
  if (!v.text.empty()) {
    out_.write(" (");
    out_.write(v.text);
    out_.write(')');
  }
}

void FrameWriter::signal(const SignalValue& v) {
  switch (format_) {
    case Format::Text:
      out_.write("  ");
      out_.write(v.name);
      out_.write(" = ");
      writeValue(v);
      out_.write('\n');
      break;
    case Format::Line:
      out_.write(firstSignal_ ? " " : "; ");
      out_.write(v.name);
      out_.write('=');
      writeValue(v);
      break;
    case Format::Csv:
      out_.write(frame_->timestamp);
      out_.write(',');
      writeCsvField(out_, frame_->interface);
      out_.write(',');
      writeIdentifier(*frame_);
      out_.write(',');
      writeCsvField(out_, frameName_);
      out_.write(',');
      if (withBytes_) {
        writeHexBytes(*frame_, 0);
        out_.write(',');
      }
      writeCsvField(out_, v.name);
      out_.write(',');
      writeCsvField(out_, v.value);
      out_.write(',');
      writeCsvField(out_, v.unit);
      out_.write(',');
      writeCsvField(out_, v.text);
      out_.write('\n');
      break;
    case Format::Json:
      if (!firstSignal_) out_.write(',');
      out_.write("{\"name\":");
      writeJsonString(out_, v.name);
      out_.write(",\"value\":");
      if (v.isNumber) out_.write(v.value);
      else writeJsonString(out_, v.value);
      if (!v.unit.empty()) {
        out_.write(",\"unit\":");
        writeJsonString(out_, v.unit);
      }
      if (!v.text.empty()) {
        out_.write(",\"text\":");
        writeJsonString(out_, v.text);
      }
      out_.write('}');
      break;
  }
  firstSignal_ = false;
}

void FrameWriter::endFrame() {
  if (format_ == Format::Json) out_.write("]}\n");
  if (format_ == Format::Line) out_.write('\n');
  frame_ = nullptr;
}

void FrameWriter::unknownFrame(const CanFrame& frame) {
  switch (format_) {
    case Format::Text:
    case Format::Line:
      writeTextHeading(frame);
      out_.write(" (unknown) ");
      writeLength(frame);
      out_.write(' ');
      writeHexBytes(frame, ' ');
      out_.write('\n');
      break;
    case Format::Csv:
      out_.write(frame.timestamp);
      out_.write(',');
      writeCsvField(out_, frame.interface);
      out_.write(',');
      writeIdentifier(frame);
      out_.write(",,");
      if (withBytes_) {  // the bytes in their own column
        writeHexBytes(frame, 0);
        out_.write(",,,,\n");
        break;
      }
      out_.write(',');
      writeHexBytes(frame, 0);
      out_.write(",,\n");
      break;
    case Format::Json:
      writeJsonFrameHead(frame);
      out_.write(",\"frame\":null,\"data\":\"");
      writeHexBytes(frame, 0);
      out_.write("\"}\n");
      break;
  }
}

}  // namespace q9tool
