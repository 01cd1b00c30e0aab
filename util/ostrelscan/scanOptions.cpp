#include "util/ostrelscan/scanOptions.h"

#include <ostream>

namespace {

template <typename Value>
void WriteElement(std::ostream& stream, const char* tag, const Value& value) {
    stream << '<' << tag << '>' << value << "</" << tag << ">\n";
}

void WriteRange(std::ostream& stream, const ScanOptions& options) {
    WriteElement(stream, "Start", options.start);
    WriteElement(stream, "End", options.end);
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const DumpOptions& options) {
    stream << "<Options>\n";
    WriteElement(stream, "Path", options.path);
    WriteElement(stream, "DO_DeviceName", options.deviceName);
    WriteElement(stream, "PoolName", options.poolName);
    WriteElement(stream, "Compress", options.compress);
    WriteElement(stream, "Sectors", options.sectors);
    WriteRange(stream, options);
    return stream << "</Options>\n";
}

std::ostream& operator<<(std::ostream& stream, const RestoreOptions& options) {
    stream << "<Options>\n";
    WriteElement(stream, "Path", options.path);
    WriteElement(stream, "PoolName", options.poolName);
    WriteRange(stream, options);
    return stream << "</Options>\n";
}
