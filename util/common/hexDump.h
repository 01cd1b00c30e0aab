#pragma once

/// Logs a hex dump of `length` bytes, 16 a line, in units of 1, 2 or 4 bytes (any other unit counts
/// as 1). A length of 0 or less logs nothing.
void ZED_HexDump(const void* data, int length, int unit);
