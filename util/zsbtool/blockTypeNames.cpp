#include "util/zsbtool/blockTypeNames.h"

#include "util/common/ascii.h"
#include "util/common/blockTypes.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

std::optional<std::string> MagicText(unsigned type) {
    if (type == kUserType) {
        return {};
    }
    std::string text;
    for (unsigned i = 0; i < 4; ++i) {
        text += static_cast<char>(kBlockTypes[type].magic >> (8 * i) & 0xFF);
    }
    return text;
}

unsigned ParseBlockType(const std::string& text) {
    for (unsigned type = 0; type < kBlockTypeCount; ++type) {
        if (text == MagicText(type) || Ascii::EqualIgnoringCase(text, kBlockTypes[type].name)) {
            return type;
        }
    }
    throw Failure("there is no block type \"" + Printable(text) + "\"");
}

}  // namespace zsbtool
