#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <iosfwd>

#include "util/common/blockTypes.h"

/// One type of block in a run: whether its blocks are taken, and how many were seen. The worker
/// changes both while the operator thread shows them.
struct BlockSelect_s {
    std::atomic<unsigned char> selected;
    const char* name;
    std::uint32_t magic;
    std::atomic<std::uint64_t> count;
};

/// The cursor of a walk over a selector's rows.
struct BS_Key {
    explicit BS_Key(int start) : position(static_cast<std::uint32_t>(start)) {}

    std::uint32_t position;         ///< index of the next row
    BlockSelect_s* last = nullptr;  ///< the row returned last
};

/// Says of each block whether its type is taken by this run, and counts the types seen. One for a
/// run; it starts with every type selected and every count 0.
class BlockSelector {
  public:
    BlockSelector();
    BlockSelector(const BlockSelector&) = delete;
    BlockSelector& operator=(const BlockSelector&) = delete;

    unsigned TypeCount() const { return kBlockTypeCount; }

    /// The first row of either group with this magic, else the "User" row.
    BlockSelect_s* BlockSelectGet(unsigned magic);
    /// The row of one group (the second words, else the first) with this magic, or null.
    BlockSelect_s* BlockSelectGet(unsigned magic, bool second);
    /// The row of a block with these two words; the first word decides before the second.
    BlockSelect_s* BlockSelectGet(unsigned first, unsigned second);
    BlockSelect_s* BlockSelectGet(const char* block);

    bool HasSystemBlockMagic(const char* block) const;
    /// The row of a system block, or null for a "User" block.
    BlockSelect_s* HasSystemBlockMagicItem(const char* block);
    bool IsUserBlock(unsigned first, unsigned second) const;
    unsigned char IsSelectedBlock(const char* block) const;

    /// Switch a row; return what it was before.
    unsigned char SelectOn(BlockSelect_s* row);
    unsigned char SelectOff(BlockSelect_s* row);
    /// Switch the row of a magic, the "User" row for an unknown one; return 0.
    int SelectOn(unsigned magic);
    int SelectOff(unsigned magic);

    /// Both leave nothing selected: callers of `SelectAllOn` rely on an empty selection to start
    /// from.
    void SelectAllOn();
    void SelectAllOff();

    /// Counts a block under its type, selected or not; returns whether the type is selected.
    unsigned char Account(const char* block);
    unsigned char Account(unsigned first, unsigned second);

    /// A new key before the row of this index, owned by the caller; `EnumerateClose` deletes it.
    BS_Key* EnumerateOpen(int start);
    /// The next row, or null after the last.
    BlockSelect_s* Enumerate(BS_Key* key);
    void EnumerateClose(BS_Key* key);

    /// Prints a line for each type that was seen.
    void AccountDisplay(std::ostream& stream) const;

  private:
    std::array<BlockSelect_s, kBlockTypeCount> rows_;
};
