// What an LDF file holds, as information records without a database: the
// head, the nodes, frames, signals and schedule tables, one line each.
#include <new>

#include "import/LdfFrameChecks.h"
#include "import/NativeImport.h"
#include "import/ScriptNumbers.h"
#include "import/TolerantLdfReader.h"

namespace q9 {
namespace {

std::string joined(const std::vector<std::string>& names) {
  std::string out;
  for (const std::string& name : names) out += (out.empty() ? "" : ", ") + name;
  return out;
}

void describe(const LdfFile& file, ImportReport& report) {
  const LdfHeader& head = file.header;
  report.info(kSubjectFile, "LIN description file, protocol " + head.protocolVersion + ", language " +
                                head.languageVersion + ", " + numberText(head.speed) + " kbps" +
                                (head.channelName ? ", channel " + *head.channelName : ""));
  if (file.master) report.info(kSubjectEcu, file.master->name + ": master");
  for (const LdfName& slave : file.slaves) report.info(kSubjectEcu, slave.text + ": slave");
  for (const LdfFrame& f : file.frames) {
    // What the import leaves out is a warning here too, not a frame.
    std::string defect = ldfIdentifierDefect(f.name, f.ident);
    if (defect.empty()) defect = ldfLengthDefect(f.name, f.size);
    if (!defect.empty()) {
      report.warn(f.at, defect);
      continue;
    }
    report.info(kSubjectFrame, f.name + ": identifier " + hexText(f.ident) + ", " + std::to_string(f.size) +
                                   " bytes, sent by " + f.publisher);
  }
  for (const LdfEventTriggeredFrame& f : file.eventTriggeredFrames)
    report.info(kSubjectFrame,
                f.name + ": event-triggered, identifier " + hexText(f.ident) + ", for " + joined(f.frames));
  for (const LdfSporadicFrame& f : file.sporadicFrames)
    report.info(kSubjectFrame, f.name + ": sporadic, for " + joined(f.frames));
  for (const LdfFrame& f : file.diagnosticFrames)
    report.info(kSubjectFrame, f.name + ": diagnostic, identifier " + hexText(f.ident));
  for (const LdfSignal& s : file.signals)
    report.info(kSubjectSignal,
                s.name + ": " + numberText(double(s.size)) + " bits, sent by " + s.publisher);
  for (const LdfSignal& s : file.diagnosticSignals)
    report.info(kSubjectSignal, s.name + ": diagnostic, " + numberText(double(s.size)) + " bits");
  for (const LdfScheduleTable& t : file.scheduleTables) {
    double cycle = 0;
    for (const LdfScheduleSlot& slot : t.slots) cycle += slot.delay;
    report.info(kSubjectFile, "schedule table " + t.name + ": " + std::to_string(t.slots.size()) + " slots, " +
                                  numberText(cycle) + " ms");
  }
}

}  // namespace

bool describeLdfFile(const std::string& pathUtf8, ImportReport& report) {
  try {
    LdfFile file;
    if (!readLdfFile(pathUtf8, file, report)) return false;
    describe(file, report);
    return true;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& failure) {
    report.fail({}, failure.what());
    return false;
  }
}

}  // namespace q9
