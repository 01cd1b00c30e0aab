#pragma once

#include <optional>
#include <string>

#include "util/zsbtool/command.h"
#include "util/zsbtool/setReport.h"

namespace zsbtool {

class JsonDocument;

/// What a command that makes a set has come to.
struct MadeSet {
    std::string path;            ///< where it is to stand, as the operator said it
    std::optional<ScanSet> set;  ///< as it stands in a folder of the outputs; none if not made
};

/// The set in the folder of files `name` is one of.
ScanSet SetInFolder(const std::string& folder, const ScanFileName& name);

/// Writes the members of the open object that tell of it.
void PutMadeSet(JsonDocument& json, const MadeSet& made);
/// Writes for people, as the last line, what was made; or that nothing was, and why.
void PutMadeSet(Output& out, const Painter& paint, const MadeSet& made, const std::string& why);

/// Tells of a command that makes one set of another: what is wrong with that, and what was made.
void ReportMadeSet(Frame& frame, const char* command, const ScanSetReport& report,
                   const MadeSet& made);

}  // namespace zsbtool
