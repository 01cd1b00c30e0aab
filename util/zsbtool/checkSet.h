#pragma once

#include "util/zsbtool/setReport.h"

namespace zsbtool {

struct Settings;

/// Reads every record of a set and judges it, under a progress bar.
CheckedSet CheckSet(const Settings& settings, ScanSet set);

}  // namespace zsbtool
