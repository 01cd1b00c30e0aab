#pragma once

#include <string>

#include "util/common/scanSet.h"

class ScanFileWalk;

namespace zsbtool {

struct Settings;

/// Which of the sets that lie together the operator chose.
ScanSetChoice ChoiceOf(const Settings& settings);

/// The set of a path, as the operator chose; where several lie together it is told which was taken.
/// Throws `Failure` when there is none, or it cannot be opened.
ScanSet OpenSet(const Settings& settings, const std::string& path);

/// Why a file's records could not be read to its end, for people; empty when they could.
std::string WhyUnread(const ScanFileWalk& walk);

}  // namespace zsbtool
