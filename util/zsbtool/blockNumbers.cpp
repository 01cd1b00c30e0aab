#include "util/zsbtool/blockNumbers.h"

#include <charconv>
#include <optional>
#include <string_view>

#include "util/zsbtool/failure.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

std::optional<std::uint64_t> ParseBlock(std::string_view text) {
    std::uint64_t block = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, block);
    return error == std::errc() && stop == end ? std::optional(block) : std::nullopt;
}

}  // namespace

std::uint64_t ParseBlockNumber(const std::string& text) {
    const auto block = ParseBlock(text);
    if (!block) {
        throw Failure("\"" + Printable(text) + "\" is no block");
    }
    return *block;
}

BlockNumbers ParseBlockNumbers(const std::string& text) {
    const std::size_t dash = text.find('-');
    const auto first = ParseBlock(std::string_view(text).substr(0, dash));
    const auto last =
        dash == std::string::npos ? first : ParseBlock(std::string_view(text).substr(dash + 1));
    if (!first || !last || *last < *first) {
        throw Failure("\"" + Printable(text) + "\" is no block, nor a range of blocks as in 17-42");
    }
    return {*first, *last};
}

}  // namespace zsbtool
