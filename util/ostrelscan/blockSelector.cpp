#include "util/ostrelscan/blockSelector.h"

#include <memory>
#include <ostream>
#include <string>
#include <utility>

namespace {

/// The rows are built in place, since their counters cannot be copied.
template <std::size_t... Index>
std::array<BlockSelect_s, kBlockTypeCount> MakeRows(std::index_sequence<Index...>) {
    return {{{1, kBlockTypes[Index].name, kBlockTypes[Index].magic, 0}...}};
}

}  // namespace

BlockSelector::BlockSelector() : rows_(MakeRows(std::make_index_sequence<kBlockTypeCount>())) {}

BlockSelect_s* BlockSelector::BlockSelectGet(unsigned magic) {
    // As the first word and as the second: so both groups are searched.
    return BlockSelectGet(magic, magic);
}

BlockSelect_s* BlockSelector::BlockSelectGet(unsigned magic, bool second) {
    const unsigned type = second ? FindSecondWordType(magic) : FindFirstWordType(magic);
    return type != kUserType ? &rows_[type] : nullptr;
}

BlockSelect_s* BlockSelector::BlockSelectGet(unsigned first, unsigned second) {
    return &rows_[ClassifyBlock({first, second})];
}

BlockSelect_s* BlockSelector::BlockSelectGet(const char* block) {
    return &rows_[ClassifyBlock(ReadBlockWords(block))];
}

bool BlockSelector::HasSystemBlockMagic(const char* block) const {
    return ClassifyBlock(ReadBlockWords(block)) != kUserType;
}

BlockSelect_s* BlockSelector::HasSystemBlockMagicItem(const char* block) {
    BlockSelect_s* row = BlockSelectGet(block);
    return row != &rows_[kUserType] ? row : nullptr;
}

bool BlockSelector::IsUserBlock(unsigned first, unsigned second) const {
    return ClassifyBlock({first, second}) == kUserType;
}

unsigned char BlockSelector::IsSelectedBlock(const char* block) const {
    return rows_[ClassifyBlock(ReadBlockWords(block))].selected.load(std::memory_order_relaxed);
}

unsigned char BlockSelector::SelectOn(BlockSelect_s* row) {
    return row->selected.exchange(1, std::memory_order_relaxed);
}

unsigned char BlockSelector::SelectOff(BlockSelect_s* row) {
    return row->selected.exchange(0, std::memory_order_relaxed);
}

int BlockSelector::SelectOn(unsigned magic) {
    SelectOn(BlockSelectGet(magic));
    return 0;
}

int BlockSelector::SelectOff(unsigned magic) {
    SelectOff(BlockSelectGet(magic));
    return 0;
}

void BlockSelector::SelectAllOn() {
    SelectAllOff();
}

void BlockSelector::SelectAllOff() {
    for (BlockSelect_s& row : rows_) {
        SelectOff(&row);
    }
}

unsigned char BlockSelector::Account(const char* block) {
    const BlockWords words = ReadBlockWords(block);
    return Account(words.first, words.second);
}

unsigned char BlockSelector::Account(unsigned first, unsigned second) {
    BlockSelect_s* row = BlockSelectGet(first, second);
    row->count.fetch_add(1, std::memory_order_relaxed);
    return row->selected.load(std::memory_order_relaxed);
}

BS_Key* BlockSelector::EnumerateOpen(int start) {
    auto key = std::make_unique<BS_Key>(start);
    return key.release();
}

BlockSelect_s* BlockSelector::Enumerate(BS_Key* key) {
    if (key->position >= rows_.size()) {
        return nullptr;
    }
    key->last = &rows_[key->position++];
    return key->last;
}

void BlockSelector::EnumerateClose(BS_Key* key) {
    const std::unique_ptr<BS_Key> closed(key);
}

void BlockSelector::AccountDisplay(std::ostream& stream) const {
    unsigned number = 0;
    for (const BlockSelect_s& row : rows_) {
        ++number;
        const std::uint64_t count = row.count.load(std::memory_order_relaxed);
        if (count != 0) {
            const bool selected = row.selected.load(std::memory_order_relaxed) != 0;
            stream << std::to_string(number) << ") " << row.name << (selected ? " + " : " - ")
                   << std::to_string(count) << std::endl;
        }
    }
}
