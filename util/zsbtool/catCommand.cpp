#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "util/common/scanSetBlocks.h"
#include "util/zsbtool/blockNumbers.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/messages.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/setWalk.h"

namespace zsbtool {

namespace {

constexpr std::size_t kLineBytes = 16;

/// "00000010  4c 45 41 46 ... |LEAF...|", as other tools dump bytes.
std::string HexLine(std::size_t offset, std::string_view bytes) {
    std::array<char, 16> part{};
    std::snprintf(part.data(), part.size(), "%08zx ", offset);
    std::string line = part.data();
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        std::snprintf(part.data(), part.size(), "%s%02x", i == kLineBytes / 2 ? "  " : " ", byte);
        line += part.data();
        text += byte >= 0x20 && byte < 0x7F ? bytes[i] : '.';
    }
    return line + "  |" + text + "|\n";
}

/// A block as a hex dump. Lines that are the one before are one "*".
std::string HexDump(std::uint64_t block, std::string_view bytes) {
    std::string dump = "block " + std::to_string(block) + "\n";
    std::string_view before;
    bool starred = false;
    for (std::size_t offset = 0; offset < bytes.size(); offset += kLineBytes) {
        const std::string_view line = bytes.substr(offset, kLineBytes);
        const bool same = line == before;
        if (!same) {
            dump += HexLine(offset, line);
        } else if (!starred) {
            dump += "*\n";
        }
        starred = same;
        before = line;
    }
    return dump;
}

/// Names the blocks from the first to the last as missing.
void TellMissing(std::uint64_t first, std::uint64_t last) {
    if (first == last) {
        Complain("the set does not hold block " + std::to_string(first));
    } else {
        Complain("the set does not hold blocks " + std::to_string(first) + " to " +
                 std::to_string(last));
    }
}

class CatCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Flag("--hex", hex_, "A hex dump in place of the bytes");
        arguments.Required("SET", path_, "A folder with a set, or a file of it");
        arguments.Required("BLOCK[-BLOCK]", typed_, "The block, or the first and the last");
    }

    ExitStatus Run(Frame& frame) override {
        const BlockNumbers wanted = ParseBlockNumbers(typed_);
        const ScanSet set = OpenSet(frame.settings, path_);
        const IndexedSet indexed = IndexSet(frame.settings, set, "cat");
        ScanSetBlocks blocks(set, indexed.index);
        const bool all = Put(frame.out, blocks, wanted);
        return all && indexed.whole ? ExitStatus::kGood : ExitStatus::kFaults;
    }

  private:
    /// Whether the set holds all of them.
    bool Put(Output& out, ScanSetBlocks& blocks, const BlockNumbers& wanted) const {
        bool all = true;
        std::uint64_t from = wanted.first;
        for (auto place = blocks.Next(from); place; place = blocks.Next(from)) {
            const std::uint64_t block = place->record->blockNumber;
            if (block > wanted.last) {
                break;
            }
            if (block != from) {
                TellMissing(from, block - 1);
                all = false;
            }
            const std::string_view bytes(place->record->block, kPoolBlockSize);
            if (hex_) {
                out << HexDump(block, bytes);
            } else {
                out << bytes;
            }
            out.Stream();
            if (block == wanted.last) {
                return all;
            }
            from = block + 1;
        }
        TellMissing(from, wanted.last);
        return false;
    }

    std::string path_;
    std::string typed_;
    bool hex_ = false;
};

}  // namespace

extern const CommandRow kCatCommand;
const CommandRow kCatCommand{"cat", "Write blocks of a set to standard output",
                             [] { return std::unique_ptr<Command>(new CatCommand); }};

}  // namespace zsbtool
