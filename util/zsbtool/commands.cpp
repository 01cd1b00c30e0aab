#include "util/zsbtool/commands.h"

// One line for each command, in the order of the help: its row stands in its own source file.
// clang-format off
#define ZSBTOOL_COMMANDS(command) \
    command(kBadBlocksCommand) \
    command(kCheckCommand) \
    command(kInfoCommand) \
    command(kListCommand) \
    command(kLogCommand) \
    command(kStatusCommand)
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
