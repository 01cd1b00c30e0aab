#include "tests/support/blockContent.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string_view>

#include "tests/support/fixedRandom.h"
#include "tests/support/poolTypes.h"

namespace support {
namespace {

static_assert(std::endian::native == std::endian::little);

constexpr std::uint64_t kEpoch = 1'700'000'000;
constexpr std::size_t kHeaderBytes = 64;

constexpr std::array<std::string_view, 48> kWords{
    "annual",   "archive", "backup",  "board",    "budget",   "catalog", "contract", "copy",
    "customer", "data",    "design",  "draft",    "east",     "export",  "figures",  "final",
    "forecast", "group",   "holiday", "image",    "index",    "invoice", "journal",  "letter",
    "mail",     "meeting", "minutes", "notes",    "offer",    "old",     "order",    "payroll",
    "photo",    "plan",    "price",   "project",  "quarter",  "record",  "report",   "sales",
    "scan",     "staff",   "summary", "template", "training", "travel",  "volume",   "west"};
constexpr std::array<std::string_view, 8> kSuffixes{".doc", ".xls", ".pdf", ".txt",
                                                    ".jpg", ".log", ".zip", ""};

/// Fills a block from its start; what does not fit is refused as a whole.
class Cursor {
  public:
    explicit Cursor(Block& block) : block_(block) {}

    [[nodiscard]] std::size_t Left() const { return block_.size() - at_; }

    void Skip(std::size_t bytes) { at_ += std::min(bytes, Left()); }

    template <typename T>
    void Put(std::uint64_t value) {
        const T narrow = static_cast<T>(value);
        PutBytes(&narrow, sizeof narrow);
    }

    void PutText(std::string_view text) { PutBytes(text.data(), text.size()); }

    void PutWide(std::string_view text) {
        for (const char c : text) {
            Put<std::uint16_t>(static_cast<unsigned char>(c));
        }
    }

    void Fill(unsigned char value, std::size_t bytes) {
        bytes = std::min(bytes, Left());
        std::memset(block_.data() + at_, value, bytes);
        at_ += bytes;
    }

  private:
    void PutBytes(const void* bytes, std::size_t count) {
        if (count <= Left()) {
            std::memcpy(block_.data() + at_, bytes, count);
            at_ += count;
        }
    }

    Block& block_;
    std::size_t at_ = 0;
};

void PutGuid(Cursor& out, std::uint64_t which) {
    FixedRandom guid(which);
    out.Put<std::uint64_t>(guid.Next());
    out.Put<std::uint64_t>(guid.Next());
}

std::string_view Word(FixedRandom& random) {
    return kWords[random.Below(kWords.size())];
}

/// Behind the magic and the word after it: own number, volume, transaction, time, checksum.
void PutHeader(Cursor& out, FixedRandom& random, std::uint64_t number, std::uint64_t seed) {
    out.Put<std::uint64_t>(number);
    PutGuid(out, seed + random.Below(4));
    out.Put<std::uint64_t>(0x10000 + number / 64);
    out.Put<std::uint32_t>(kEpoch + number / 8 + random.Below(64));
    out.Put<std::uint32_t>(random.Next());
    out.Put<std::uint64_t>(0);
    out.Put<std::uint64_t>(0);
}

void FillHead(Cursor& out, FixedRandom& random) {
    for (unsigned i = 0; i < 6; ++i) {
        out.Put<std::uint64_t>(random.Below(1U << 24U));
        out.Put<std::uint32_t>(kEpoch + random.Below(1U << 22U));
        out.Put<std::uint32_t>(1);
    }
    PutGuid(out, random.Next());
    out.PutWide("SAMPLE_POOL");
    out.Skip(512);
    for (unsigned i = 0; i < 24; ++i) {
        out.Put<std::uint64_t>(1024 * i + 1);
        out.Put<std::uint64_t>(random.Below(4096));
    }
}

void FillBranch(Cursor& out, FixedRandom& random, std::uint64_t number) {
    std::uint64_t key = random.Below(1U << 30U);
    std::uint64_t child = number + random.Below(1U << 16U);
    const std::size_t unused = random.Below(1800);
    while (out.Left() >= 16 + unused) {
        out.Put<std::uint64_t>(key += 1 + random.Below(4096));
        out.Put<std::uint64_t>(child += random.Chance(70) ? 1 : random.Below(512));
    }
}

void FillLeaf(Cursor& out, FixedRandom& random, std::uint64_t number) {
    std::uint64_t key = random.Below(1U << 30U);
    std::uint64_t start = number + random.Below(1U << 20U);
    const std::size_t unused = random.Below(1400);
    while (out.Left() >= 32 + unused) {
        const std::uint64_t length = random.Chance(50) ? 1 : 1 + random.Below(256);
        out.Put<std::uint64_t>(key += 1 + random.Below(64));
        out.Put<std::uint64_t>(start);
        out.Put<std::uint32_t>(length);
        out.Put<std::uint32_t>(0x20 | random.Below(2));
        out.Put<std::uint64_t>(kEpoch + random.Below(1U << 20U));
        start += random.Chance(60) ? length : length + random.Below(4096);
    }
}

void FillNames(Cursor& out, FixedRandom& random) {
    std::uint64_t id = random.Below(1U << 24U);
    const std::size_t unused = 200 + random.Below(1200);
    while (out.Left() >= unused) {
        out.Put<std::uint32_t>(random.Next());
        out.Put<std::uint64_t>(id += 1 + random.Below(16));
        out.Put<std::uint32_t>(kEpoch + random.Below(1U << 22U));
        out.Put<std::uint64_t>(random.Below(1U << 20U));
        out.PutWide(Word(random));
        out.PutWide(" ");
        out.PutWide(Word(random));
        out.PutWide(kSuffixes[random.Below(kSuffixes.size())]);
        out.Put<std::uint16_t>(0);
    }
}

void FillMap(Cursor& out, FixedRandom& random) {
    while (out.Left() > 0) {
        const unsigned char whole = random.Chance(65) ? 0xFF : 0x00;
        out.Fill(whole, 1 + random.Below(64));
        out.Fill(static_cast<unsigned char>(random.Next()), 1);
    }
}

void FillLog(Cursor& out, FixedRandom& random, std::uint64_t number) {
    std::uint64_t transaction = 0x10000 + number / 64;
    const std::size_t unused = random.Below(3000);
    while (out.Left() >= 64 + unused) {
        out.Put<std::uint64_t>(++transaction);
        out.Put<std::uint32_t>(1 + random.Below(12));
        out.Put<std::uint32_t>(24);
        out.Put<std::uint64_t>(number + random.Below(1U << 16U));
        for (unsigned i = 0; i < 8; ++i) {
            out.Put<std::uint8_t>(random.Next());
        }
        out.Skip(random.Chance(50) ? 16 : 32);
    }
}

void FillInternal(Cursor& out, FixedRandom& random, Shape shape, std::uint64_t number) {
    switch (shape) {
        case Shape::Branch:
            return FillBranch(out, random, number);
        case Shape::Leaf:
            return FillLeaf(out, random, number);
        case Shape::Names:
            return FillNames(out, random);
        case Shape::Map:
            return FillMap(out, random);
        case Shape::Log:
            return FillLog(out, random, number);
        case Shape::Head:
        case Shape::File:
            return FillHead(out, random);
    }
}

void FillText(Cursor& out, FixedRandom& random) {
    while (out.Left() >= 16) {
        out.PutText(Word(random));
        out.PutText(random.Chance(10) ? "\n" : " ");
    }
}

void FillTable(Cursor& out, FixedRandom& random) {
    for (std::uint64_t row = 0x4000'0000 + random.Below(1000); out.Left() >= 16; ++row) {
        out.Put<std::uint32_t>(row);
        out.Put<std::uint64_t>(random.Below(100000));
        out.Put<std::uint32_t>(random.Below(4));
    }
}

void FillNoise(Cursor& out, FixedRandom& random) {
    while (out.Left() >= 8) {
        out.Put<std::uint64_t>(random.Next());
    }
}

/// File data that mentions a magic everywhere but where it would count.
void FillTrap(Cursor& out, FixedRandom& random) {
    const std::string_view magic = kPoolTypes[random.Below(kUserType)].magic;
    out.PutText(random.Chance(50) ? " " : "oVUk");
    while (out.Left() >= 32) {
        out.PutText(random.Chance(50) ? " magic " : " word ");
        out.PutText(magic);
    }
}

bool IsMagicWord(const unsigned char* word, std::size_t from, std::size_t to) {
    return std::any_of(kPoolTypes.begin() + from, kPoolTypes.begin() + to,
                       [word](const PoolType& type) {
                           return std::memcmp(word, type.magic.data(), type.magic.size()) == 0;
                       });
}

/// Random bytes can spell a magic by accident; such a word becomes a harmless one.
void Defuse(Block& block) {
    if (IsMagicWord(block.data(), 0, kSecondWordType)) {
        block[0] = '.';
    }
    if (IsMagicWord(block.data() + 4, kSecondWordType, kUserType)) {
        block[4] = '.';
    }
}

std::optional<Block> MakeUser(FixedRandom& random) {
    Block block{};
    Cursor out(block);
    const std::uint64_t kind = random.Below(100);
    if (kind < 25) {
        return std::nullopt;
    }
    if (kind < 50) {
        FillText(out, random);
    } else if (kind < 70) {
        FillTable(out, random);
    } else if (kind < 97) {
        FillNoise(out, random);
    } else {
        FillTrap(out, random);
    }
    Defuse(block);
    return block;
}

}  // namespace

std::optional<Block> BlockContent::Make(std::uint64_t number, std::size_t type, bool decoy) const {
    FixedRandom random(FixedRandom(seed_ ^ (number << 20U)).Next());
    if (type == kUserType) {
        return MakeUser(random);
    }
    Block block{};
    Cursor out(block);
    if (type == kSecondWordType) {
        out.Put<std::uint32_t>(random.Next());
        Defuse(block);
    }
    out.PutText(kPoolTypes[type].magic);
    if (type != kSecondWordType) {
        if (decoy) {
            out.PutText(kPoolTypes[kSecondWordType].magic);
        } else {
            out.Put<std::uint32_t>(0x0002'0001);
        }
    }
    PutHeader(out, random, number, seed_);
    FillInternal(out, random, kPoolTypes[type].shape, number);
    return block;
}

Block BlockContent::MakeLabel() const {
    Block block{};
    Cursor out(block);
    out.PutText("Sample pool device\n");
    out.Skip(kHeaderBytes - 19);
    PutGuid(out, seed_);
    out.Put<std::uint64_t>(1);
    out.Put<std::uint64_t>(kBlockBytes);
    block[510] = 0x55;
    block[511] = 0xAA;
    return block;
}

}  // namespace support
