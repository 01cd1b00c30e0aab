#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "util/zsbtool/runLog.h"
#include "util/zsbtool/setReport.h"

class ScanSetMap;

namespace zsbtool {

class OutputFile;

/// What a report tells.
struct ReportContent {
    const CheckedSet& checked;
    const ScanSetMap& map;
    std::string log;              ///< its path; empty without one
    std::vector<LoggedRun> runs;  ///< of that log
};

/// The last save of a log that wrote a set's files: those names, whatever their ending, with those
/// CRCs. Nothing when there is none.
std::optional<std::size_t> RunThatSaved(const ScanSet& set, const std::vector<LoggedRun>& runs);

/// Writes it as a page for people.
void WriteReport(OutputFile& file, const ReportContent& content);

}  // namespace zsbtool
