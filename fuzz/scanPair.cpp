// Two files of a set, whose bytes are anything: a check says the same on one thread as on several,
// and counts what can be read; what can be read stands at its place in the image of the pool, which
// is read by another way in compressed files; and what the image calls lost lies in the pool, in
// order.

#include <array>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>

#include "fuzz/input.h"
#include "fuzz/property.h"
#include "fuzz/quiet.h"
#include "tests/support/fileBytes.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanSetPool.h"

namespace {

/// The last record of each block, as far as the files can be read one record after the other.
class Walked {
  public:
    explicit Walked(const ScanSet& set) {
        for (const ScanSetFile& file : set.Files()) {
            ScanFileWalk walk(set.PathOf(file));
            QuadAndBlock_s record;
            while (walk.Next(&record)) {
                blocks[record.blockNumber] = std::string(record.block, sizeof record.block);
            }
            records += walk.Count();
        }
    }

    std::map<std::uint64_t, std::string> blocks;
    std::uint64_t records = 0;
};

std::string TextOf(const ScanSetReport& report) {
    std::string text = std::to_string(report.records) + '\n';
    for (const auto* list : {&report.problems, &report.warnings}) {
        for (const ScanProblem& one : *list) {
            text += std::string(one.code) + '|' + one.file + '|' + one.text + '\n';
        }
    }
    return text;
}

void CompareImage(ScanSetPool& pool, const Walked& walked, bool strict) {
    std::array<char, kPoolBlockSize> bytes{};
    for (const auto& [block, content] : walked.blocks) {
        if (block >= pool.Blocks()) {
            break;
        }
        const int error = pool.Read(block * kPoolBlockSize, bytes);
        fuzz::Require(strict || error == 0, "what can be read is in the image");
        fuzz::Require(strict || std::memcmp(bytes.data(), content.data(), bytes.size()) == 0,
                      "the image has the record that a restore leaves");
    }
}

void JudgeLost(const ScanSetPool& pool) {
    std::uint64_t behind = 0;
    for (const BlockSpan& span : pool.Lost()) {
        fuzz::Require(behind <= span.first && span.first < span.end && span.end <= pool.Blocks(),
                      "lost parts lie in the pool, in order");
        behind = span.end;
    }
}

void Show(const std::string& folder, bool strict) {
    try {
        ScanSetPool pool(ScanSet(folder), 2, strict);
        CompareImage(pool, Walked(pool.Set()), strict);
        JudgeLost(pool);
    } catch (const std::runtime_error&) {
        fuzz::Require(ScanSet(folder).Model() == nullptr, "a set with a header has an image");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Quiet::Please();
    fuzz::Input input(data, size);
    const std::size_t first = input.Byte() + std::size_t{256} * input.Byte();
    const support::TemporaryDirectory directory;
    support::WriteFile(directory.File("T0000000.ZSB"), std::string(input.Text(first)));
    support::WriteFile(directory.File("T0000001.ZSB"), std::string(input.Rest()));

    const ScanSet set(directory.Path());
    const ScanSetReport report = CheckScanSet(set, 1);
    fuzz::Require(TextOf(report) == TextOf(CheckScanSet(set, 3)),
                  "a check does not depend on its threads");
    fuzz::Require(report.records == Walked(set).records, "a check counts what can be read");
    Show(directory.Path(), false);
    Show(directory.Path(), true);
    return 0;
}
