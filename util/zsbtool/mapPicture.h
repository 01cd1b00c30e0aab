#pragma once

#include <string>

class ScanSetMap;

namespace zsbtool {

class Output;
class Painter;

/// How many cells a map has that is drawn in characters.
inline constexpr unsigned kTextMapCells = 1024;
/// How many cells a map has that is drawn in SVG.
inline constexpr unsigned kSvgMapCells = 4096;

/// Draws a map in characters, each type with a letter of its own, and a legend of the types that
/// are there.
void PutMap(Output& out, const Painter& paint, const ScanSetMap& map);

/// Draws a map as an SVG element with its legend, to stand alone or in a page, in light and dark.
std::string MapSvg(const ScanSetMap& map);

}  // namespace zsbtool
