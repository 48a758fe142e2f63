// Reads a LIN description file into an LdfFile, reading deviations from the
// standard form as meant: sections and items in any order, optional items
// missing, unknown sections and items passed over, a missing ';' supplied.
// Each deviation is one warning with its place in the file.
#pragma once

#include <string>
#include <string_view>

#include "import/ImportReport.h"
#include "import/LdfModel.h"

namespace q9 {

// False, with report.fail() saying why, when nothing of the text can be
// used: it doesn't start with LIN_description_file, or it describes no
// nodes, signals or frames at all.
bool readLdfText(std::string_view text, LdfFile& file, ImportReport& report);

// The same for a file: its text read whole (Windows-1252 turned into UTF-8),
// the encoding reported once as information when it is not plain ASCII.
bool readLdfFile(const std::string& pathUtf8, LdfFile& file, ImportReport& report);

}  // namespace q9
