// Periods are shown in milliseconds with three decimals, as timestamps have
// microseconds, and jitter is the largest deviation from the described
// cycle. A figure that can't be given is "-" in the table, empty in CSV and
// null in JSON; the table pads each column to its widest cell.
#include "StatsWriter.h"

#include <algorithm>
#include <cstdio>

#include "TextEscapes.h"

namespace q9tool {
namespace {

const char kHexDigits[] = "0123456789ABCDEF";
constexpr double kMicrosecondsPerMillisecond = 1000.0;

std::string fixed(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

// Periods to the microsecond, as the timestamps have them.
std::string milliseconds(double microseconds) { return fixed(microseconds / kMicrosecondsPerMillisecond, 3); }

std::string hexIdentifier(uint32_t identifier, bool extended) {
  std::string digits(extended ? 8 : 3, '0');
  for (size_t i = digits.size(); i-- > 0; identifier >>= 4) digits[i] = kHexDigits[identifier & 0xF];
  return digits;
}

std::string formText(size_t length, bool fd) { return std::to_string(length) + (fd ? " FD" : ""); }

// "8" when a single form was seen, else each with its count: "6 (3), 8 (97)".
std::string seenText(const IdentifierStatistics& id) {
  std::vector<LengthSeen> seen = id.seen;
  std::sort(seen.begin(), seen.end(),
            [](const LengthSeen& a, const LengthSeen& b) { return a.fd != b.fd ? !a.fd : a.length < b.length; });
  if (seen.size() == 1) return formText(seen[0].length, seen[0].fd);
  std::string text;
  for (const LengthSeen& s : seen) {
    if (!text.empty()) text += ", ";
    text += formText(s.length, s.fd) + " (" + std::to_string(s.frames) + ")";
  }
  return text;
}

bool hasCycle(const IdentifierStatistics& id) { return id.described && id.described->cycleMilliseconds; }

double cycleMicroseconds(const IdentifierStatistics& id) {
  return double(id.described->cycleMilliseconds) * kMicrosecondsPerMillisecond;
}

struct Unknown {
  uint64_t identifiers = 0;
  uint64_t frames = 0;
};
Unknown countUnknown(const std::vector<const IdentifierStatistics*>& ids) {
  Unknown unknown;
  for (const IdentifierStatistics* id : ids)
    if (!id->described) {
      ++unknown.identifiers;
      unknown.frames += id->frames;
    }
  return unknown;
}

// Columns padded to their widest cell; numbers to the right.
class Table {
 public:
  explicit Table(std::vector<std::pair<std::string, bool>> headings) {
    std::vector<std::string> row;
    for (auto& [text, right] : headings) {
      row.push_back(text);
      rightAligned_.push_back(right);
    }
    add(std::move(row));
  }
  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  void write(Output& out) const {
    std::vector<size_t> widths(rightAligned_.size(), 0);
    for (const auto& row : rows_)
      for (size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], row[c].size());
    for (const auto& row : rows_) {
      std::string line;
      for (size_t c = 0; c < row.size(); ++c) {
        std::string padding(widths[c] - row[c].size(), ' ');
        if (c > 0) line += "  ";
        line += rightAligned_[c] ? padding + row[c] : row[c] + (c + 1 < row.size() ? padding : "");
      }
      out.write(line);
      out.write('\n');
    }
  }

 private:
  std::vector<bool> rightAligned_;
  std::vector<std::vector<std::string>> rows_;
};

void writeText(Output& out, const StatsReport& report) {
  const std::string none = "-";
  auto ids = report.statistics.identifiers();
  Table frames({{"interface", false}, {"id", false}, {"frame", false}, {"count", true}, {"mean ms", true},
                {"min ms", true}, {"max ms", true}, {"cycle ms", true}, {"jitter ms", true}, {"stddev ms", true},
                {"length", true}, {"wrong", true}, {"seen", false}});
  for (const IdentifierStatistics* id : ids) {
    const Periods& p = id->periods;
    bool periods = p.count() > 0;
    frames.add({id->interface, hexIdentifier(id->identifier, id->extended),
                id->described ? id->described->name : "(unknown)", std::to_string(id->frames),
                periods ? milliseconds(p.mean()) : none, periods ? milliseconds(p.min()) : none,
                periods ? milliseconds(p.max()) : none,
                hasCycle(*id) ? std::to_string(id->described->cycleMilliseconds) : none,
                periods && hasCycle(*id) ? milliseconds(p.largestDeviationFrom(cycleMicroseconds(*id))) : none,
                periods ? milliseconds(p.standardDeviation()) : none,
                id->described ? formText(static_cast<size_t>(std::max(id->described->length, 0)), id->described->fd())
                              : none,
                id->described ? std::to_string(id->mismatched) : none, seenText(*id)});
  }
  frames.write(out);

  out.write("\nbus load at " + std::to_string(report.rates.nominal) + " bit/s, CAN FD data phase at " +
            std::to_string(report.rates.data) + " bit/s\n");
  Table buses({{"interface", false}, {"frames", true}, {"duration s", true}, {"load %", true}});
  for (const InterfaceStatistics* bus : report.statistics.interfaces()) {
    std::optional<double> load = bus->loadPercent(report.rates);
    buses.add({bus->name, std::to_string(bus->frames), bus->timedFrames ? fixed(bus->durationSeconds(), 6) : none,
               load ? fixed(*load, 2) : none});
  }
  buses.write(out);

  Unknown unknown = countUnknown(ids);
  out.write("\nunknown identifiers: " + std::to_string(unknown.identifiers) + " (" + std::to_string(unknown.frames) +
            " frames)\n");
  out.write("described frames not seen: ");
  if (report.notSeen.empty()) out.write("none");
  for (size_t i = 0; i < report.notSeen.size(); ++i) {
    const DescribedFrame& f = *report.notSeen[i];
    out.write((i ? ", " : "") + f.name + " (" + hexIdentifier(f.identifier, f.extended()) + ")");
  }
  out.write('\n');
}

void writeCsvRow(Output& out, const std::vector<std::string>& fields) {
  for (size_t i = 0; i < fields.size(); ++i) {
    if (i) out.write(',');
    writeCsvField(out, fields[i]);
  }
  out.write('\n');
}

void writeCsv(Output& out, const StatsReport& report) {
  writeCsvRow(out, {"kind", "interface", "identifier", "extended", "frame", "frames", "mean_period_ms",
                    "min_period_ms", "max_period_ms", "cycle_ms", "jitter_ms", "stddev_ms", "length", "fd",
                    "mismatched", "seen", "duration_s", "nominal_bits", "data_bits", "load_percent"});
  auto flag = [](bool value) { return std::string(value ? "true" : "false"); };
  for (const IdentifierStatistics* id : report.statistics.identifiers()) {
    const Periods& p = id->periods;
    bool periods = p.count() > 0;
    const DescribedFrame* d = id->described;
    writeCsvRow(out, {"frame", id->interface, hexIdentifier(id->identifier, id->extended), flag(id->extended),
                      d ? d->name : "", std::to_string(id->frames), periods ? milliseconds(p.mean()) : "",
                      periods ? milliseconds(p.min()) : "", periods ? milliseconds(p.max()) : "",
                      hasCycle(*id) ? std::to_string(d->cycleMilliseconds) : "",
                      periods && hasCycle(*id) ? milliseconds(p.largestDeviationFrom(cycleMicroseconds(*id))) : "",
                      periods ? milliseconds(p.standardDeviation()) : "", d ? std::to_string(d->length) : "",
                      d ? flag(d->fd()) : "", d ? std::to_string(id->mismatched) : "", seenText(*id), "", "", "",
                      ""});
  }
  for (const InterfaceStatistics* bus : report.statistics.interfaces()) {
    std::optional<double> load = bus->loadPercent(report.rates);
    writeCsvRow(out, {"interface", bus->name, "", "", "", std::to_string(bus->frames), "", "", "", "", "", "", "", "",
                      "", "", bus->timedFrames ? fixed(bus->durationSeconds(), 6) : "",
                      std::to_string(bus->nominalBits), std::to_string(bus->dataBits), load ? fixed(*load, 2) : ""});
  }
  for (const DescribedFrame* f : report.notSeen)
    writeCsvRow(out, {"not_seen", "", hexIdentifier(f->identifier, f->extended()), flag(f->extended()), f->name, "0",
                      "", "", "", f->cycleMilliseconds ? std::to_string(f->cycleMilliseconds) : "", "", "",
                      std::to_string(f->length), flag(f->fd()), "", "", "", "", "", ""});
}

std::string jsonBool(bool value) { return value ? "true" : "false"; }

void writeJson(Output& out, const StatsReport& report) {
  auto ids = report.statistics.identifiers();
  out.write("{\"log\":" + jsonString(report.log) + ",\"bitrate\":" + std::to_string(report.rates.nominal) +
            ",\"data_bitrate\":" + std::to_string(report.rates.data) + ",\n\"frames\":[");
  const char* separator = "\n";
  for (const IdentifierStatistics* id : ids) {
    const Periods& p = id->periods;
    const DescribedFrame* d = id->described;
    std::string row = separator;
    row += "{\"interface\":" + jsonString(id->interface) +
           ",\"identifier\":" + jsonString(hexIdentifier(id->identifier, id->extended)) +
           ",\"extended\":" + jsonBool(id->extended) + ",\"frame\":" + (d ? jsonString(d->name) : "null") +
           ",\"count\":" + std::to_string(id->frames) + ",\"period_ms\":";
    row += p.count() ? "{\"mean\":" + milliseconds(p.mean()) + ",\"min\":" + milliseconds(p.min()) +
                           ",\"max\":" + milliseconds(p.max()) + ",\"stddev\":" + milliseconds(p.standardDeviation()) +
                           "}"
                     : "null";
    row += ",\"cycle_ms\":" + (hasCycle(*id) ? std::to_string(d->cycleMilliseconds) : "null");
    row += ",\"jitter_ms\":" +
           (p.count() && hasCycle(*id) ? milliseconds(p.largestDeviationFrom(cycleMicroseconds(*id))) : "null");
    row += ",\"described\":" +
           (d ? "{\"length\":" + std::to_string(d->length) + ",\"fd\":" + jsonBool(d->fd()) + "}" : "null");
    row += ",\"mismatched\":" + (d ? std::to_string(id->mismatched) : "null") + ",\"seen\":[";
    for (size_t i = 0; i < id->seen.size(); ++i)
      row += (i ? "," : "") + std::string("{\"length\":") + std::to_string(id->seen[i].length) +
             ",\"fd\":" + jsonBool(id->seen[i].fd) + ",\"count\":" + std::to_string(id->seen[i].frames) + "}";
    row += "]}";
    out.write(row);
    separator = ",\n";
  }
  out.write("],\n\"interfaces\":[");
  separator = "\n";
  for (const InterfaceStatistics* bus : report.statistics.interfaces()) {
    std::optional<double> load = bus->loadPercent(report.rates);
    out.write(separator + std::string("{\"interface\":") + jsonString(bus->name) +
              ",\"frames\":" + std::to_string(bus->frames) + ",\"timed_frames\":" + std::to_string(bus->timedFrames) +
              ",\"duration_s\":" + (bus->timedFrames ? fixed(bus->durationSeconds(), 6) : "null") +
              ",\"nominal_bits\":" + std::to_string(bus->nominalBits) +
              ",\"data_bits\":" + std::to_string(bus->dataBits) +
              ",\"load_percent\":" + (load ? fixed(*load, 2) : "null") + "}");
    separator = ",\n";
  }
  out.write("],\n\"not_seen\":[");
  separator = "\n";
  for (const DescribedFrame* f : report.notSeen) {
    out.write(separator + std::string("{\"identifier\":") + jsonString(hexIdentifier(f->identifier, f->extended())) +
              ",\"extended\":" + jsonBool(f->extended()) + ",\"frame\":" + jsonString(f->name) +
              ",\"cycle_ms\":" + (f->cycleMilliseconds ? std::to_string(f->cycleMilliseconds) : "null") + "}");
    separator = ",\n";
  }
  Unknown unknown = countUnknown(ids);
  out.write("],\n\"unknown_identifiers\":" + std::to_string(unknown.identifiers) +
            ",\"unknown_frames\":" + std::to_string(unknown.frames) +
            ",\"untimed_frames\":" + std::to_string(report.statistics.untimedFrames()) +
            ",\"backward_steps\":" + std::to_string(report.statistics.backwardSteps()) +
            ",\"skipped_frames\":" + std::to_string(report.skippedFrames) +
            ",\"malformed_lines\":" + std::to_string(report.malformedLines) + "}\n");
}

}  // namespace

void writeStats(Output& out, Format format, const StatsReport& report) {
  switch (format) {
    case Format::Text:
    case Format::Line: writeText(out, report); break;
    case Format::Csv: writeCsv(out, report); break;
    case Format::Json: writeJson(out, report); break;
  }
}

}  // namespace q9tool
