#pragma once

#include "util/zsbtool/setReport.h"

namespace zsbtool {

struct Settings;

/// Reads every record of a set and judges it, under a progress bar; `take` gets the records.
CheckedSet CheckSet(const Settings& settings, ScanSet set, const ScanSetRecordTaker& take = {});

}  // namespace zsbtool
