#include <iostream>

#include "util/ostrelscan/commandLine.h"

namespace {

constexpr const char* kUsageHead =
    R"(Usage: ostrelscan [OPTION]... [ROPTION]... restore POOLNAME DEVICE
   or: ostrelscan [OPTION]... [SOPTION]... save POOLNAME DEVICE
     Scans or restores a OSTREL pool.

Mandatory arguments to long options are mandatory for short options too.

 OPTION:  General options.
      -a, --all-blocks             Include non-metadata blocks.
      -h, --help                   Displays this help information and exits.
          --automatic              Run without user interaction (use is not
                                   recommended).
          --bypass-ostrel          Bypass OSTREL (use is not recommended).
      -P, --path=PATH              Specifies path to ZSB files.
                                     Default is ")";

constexpr const char* kUsageTail = R"("
          --validation-skip        Skip validation of OSTREL Pool's superblock header.
      -v, --version                Displays version information and exits.

 ROPTION: Restore specific options.
          --danger                 Indicates that you are aware of the dangers
                                   of the restore feature.

 SOPTION: Save specific options
      -c, --compress               Compress the generated ZSB files.

The first argument is the ACTION to perform.  This can either be 'restore' or
'save'.  POOLNAME is a name of a OSTREL pool.  DEVICE is the name of the device.
Under Linux, this is normally /dev/pool/POOLNAME.  DEVICE is not needed under Vantor.

The 'save' ACTION is used to copy file system internal blocks.  These files
can be used to help resolve issues with OSTREL.

The 'restore' ACTION will overwrite any current data on the specified POOL and
DEVICE.  This can destroy your data if not done correctly.  The --danger option
is required to indicate that you understand that using 'restore' can result in
massive data loss. Rename ZSB files to ZRB files before restoring.

)";

}  // namespace

void SCAN_Usage(const char* defaultPath) {
    std::cout << kUsageHead << defaultPath << kUsageTail << std::flush;
}
