#pragma once

#include <span>
#include <string>
#include <vector>

#include "util/common/scanSetCheck.h"
#include "util/zsbtool/table.h"

namespace zsbtool {

class JsonDocument;
class Output;

/// A set and what was found in it.
struct CheckedSet {
    ScanSet set;
    ScanSetReport report;
};

/// "restorable" or "not restorable: 2 problems".
std::string Verdict(const ScanSetReport& report);
/// The tone for that.
Tone VerdictTone(const ScanSetReport& report);

/// The codes alone, in their order.
std::vector<std::string> CodesOf(const std::vector<ScanProblem>& problems);

/// Writes a list of problems or warnings as a member of the open object.
void PutProblems(JsonDocument& json, const char* name, const std::vector<ScanProblem>& problems);

/// What was found in a set; borrowed.
struct Findings {
    std::span<const ScanProblem> problems;
    std::span<const ScanProblem> warnings;
};

/// Writes problems and warnings as a table; nothing where there are none.
void PutProblems(Output& out, const Painter& paint, const Findings& findings);

/// Writes the members of the open object that tell of a set.
void PutCheckedSet(JsonDocument& json, const CheckedSet& checked);

/// Writes for people what a set is, what is wrong with it, and the verdict as the last line.
void PutCheckedSet(Output& out, const Painter& paint, const CheckedSet& checked);

}  // namespace zsbtool
