#include "util/zsbtool/commands.h"

// What needs FUSE is built only where that is.
#ifdef ZSBTOOL_MOUNTS
#define ZSBTOOL_MOUNT(command) command(kMountCommand)
#else
#define ZSBTOOL_MOUNT(command)
#endif

// One line for each command, in the order of the help: its row stands in its own source file.
// clang-format off
#define ZSBTOOL_COMMANDS(command) \
    command(kBadBlocksCommand) \
    command(kCatCommand) \
    command(kCheckCommand) \
    command(kCompareCommand) \
    command(kExportCommand) \
    command(kFindCommand) \
    command(kImageCommand) \
    command(kInfoCommand) \
    command(kListCommand) \
    command(kLogCommand) \
    command(kMapCommand) \
    command(kMergeCommand) \
    ZSBTOOL_MOUNT(command) \
    command(kPackCommand) \
    command(kPreflightCommand) \
    command(kPrepareCommand) \
    command(kReportCommand) \
    command(kStatusCommand) \
    command(kUnpackCommand)
// clang-format on

namespace zsbtool {

#define DECLARE(row) extern const CommandRow row;
ZSBTOOL_COMMANDS(DECLARE)
#undef DECLARE

std::span<const CommandRow* const> Commands() {
#define POINT_AT(row) &(row),
    static constexpr const CommandRow* kCommands[] = {ZSBTOOL_COMMANDS(POINT_AT)};
#undef POINT_AT
    return kCommands;
}

}  // namespace zsbtool
