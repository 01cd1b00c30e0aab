// Makes a sample pool image and prints what was planted in it as JSON.

#include <fcntl.h>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "tests/support/blockContent.h"
#include "tests/support/poolPlan.h"

namespace {

using support::kBlockBytes;

constexpr std::size_t kBatchBlocks = 256;
constexpr std::uint64_t kDecoyEvery = 37;
constexpr std::uint64_t kLargestPool = std::uint64_t{1} << 32U;
constexpr const char* kUsage =
    "Usage: mkpool [--size 64M] [--seed N] [--internal 0.35] [--superblock SPB5|SB64] OUTPUT\n";

struct Order {
    support::PoolWish wish;
    std::string output;
};

template <typename T>
T ParseNumber(std::string_view text, std::string_view what) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) {
        throw std::invalid_argument(std::string(what) + " is no number: " + std::string(text));
    }
    return value;
}

std::uint64_t ParseBlocks(std::string_view text) {
    constexpr std::string_view units = "KMG";
    const std::size_t unit = text.empty() ? units.npos : units.find(text.back());
    const std::uint64_t scale = unit == units.npos ? 1 : std::uint64_t{1024} << (10 * unit);
    const std::string_view digits = unit == units.npos ? text : text.substr(0, text.size() - 1);
    const auto number = ParseNumber<std::uint64_t>(digits, "the size");
    if (number > kLargestPool * kBlockBytes / scale || number * scale % kBlockBytes != 0 ||
        number * scale / kBlockBytes < support::kSmallestPool) {
        throw std::invalid_argument("the size must be a multiple of 4096 from 256K to 16384G: " +
                                    std::string(text));
    }
    return number * scale / kBlockBytes;
}

double ParseShare(std::string_view text) {
    const auto share = ParseNumber<double>(text, "the share of internal blocks");
    if (!(share >= 0.0 && share <= 1.0)) {
        throw std::invalid_argument("the share of internal blocks must be 0 to 1: " +
                                    std::string(text));
    }
    return share;
}

std::size_t ParseSuperblock(std::string_view text) {
    for (const std::size_t type : {support::kSuperblockZ32, support::kSuperblockZ64}) {
        if (text == support::kPoolTypes[type].magic) {
            return type;
        }
    }
    throw std::invalid_argument("the superblock must be SPB5 or SB64: " + std::string(text));
}

void TakeOption(Order& order, int option, std::string_view value) {
    switch (option) {
        case 's':
            order.wish.blocks = ParseBlocks(value);
            break;
        case 'n':
            order.wish.seed = ParseNumber<std::uint64_t>(value, "the seed");
            break;
        case 'i':
            order.wish.internal = ParseShare(value);
            break;
        case 'b':
            order.wish.superblock = ParseSuperblock(value);
            break;
        default:
            throw std::invalid_argument("unknown option or missing value");
    }
}

Order ParseOrder(int argc, char** argv) {
    constexpr std::array<option, 5> options{{{"size", required_argument, nullptr, 's'},
                                             {"seed", required_argument, nullptr, 'n'},
                                             {"internal", required_argument, nullptr, 'i'},
                                             {"superblock", required_argument, nullptr, 'b'},
                                             {nullptr, 0, nullptr, 0}}};
    opterr = 0;
    Order order;
    order.wish.blocks = ParseBlocks("64M");
    for (int option = 0; (option = getopt_long(argc, argv, "", options.data(), nullptr)) != -1;) {
        TakeOption(order, option, optarg == nullptr ? "" : optarg);
    }
    if (optind + 1 != argc) {
        throw std::invalid_argument("exactly one OUTPUT is wanted");
    }
    order.output = argv[optind];
    return order;
}

/// The image file: regular, made anew, with holes wherever nothing is written.
class ImageFile {
  public:
    explicit ImageFile(const std::string& path)
        : path_(path), file_(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666)) {
        if (file_ < 0) {
            Fail();
        }
    }
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;
    ~ImageFile() {
        if (file_ >= 0) {
            close(file_);
        }
    }

    /// Drops what the file held and makes it one hole of `bytes`.
    void Clear(std::uint64_t bytes) {
        struct stat facts {};
        if (fstat(file_, &facts) != 0) {
            Fail();
        }
        if (!S_ISREG(facts.st_mode)) {
            throw std::invalid_argument("not a regular file: " + path_);
        }
        if (ftruncate(file_, 0) != 0 || ftruncate(file_, static_cast<off_t>(bytes)) != 0) {
            Fail();
        }
    }

    void Write(const support::Block* blocks, std::size_t count, std::uint64_t number) {
        const auto* at = reinterpret_cast<const unsigned char*>(blocks);
        auto offset = static_cast<off_t>(number * kBlockBytes);
        for (std::size_t left = count * kBlockBytes; left > 0;) {
            const ssize_t done = pwrite(file_, at, left, offset);
            if (done < 0 && errno == EINTR) {
                continue;
            }
            if (done <= 0) {
                Fail();
            }
            at += done;
            offset += done;
            left -= static_cast<std::size_t>(done);
        }
    }

    void Close() {
        const int file = file_;
        file_ = -1;
        if (close(file) != 0) {
            Fail();
        }
    }

  private:
    [[noreturn]] void Fail() const {
        throw std::system_error(errno, std::generic_category(), path_);
    }

    std::string path_;
    int file_;
};

/// Gathers neighbouring blocks, so that one write takes many.
class BlockWriter {
  public:
    explicit BlockWriter(ImageFile& image) : image_(image) { batch_.reserve(kBatchBlocks); }

    void Add(std::uint64_t number, const support::Block& block) {
        if (batch_.size() == kBatchBlocks || number != first_ + batch_.size()) {
            Flush();
        }
        if (batch_.empty()) {
            first_ = number;
        }
        batch_.push_back(block);
    }

    void Flush() {
        image_.Write(batch_.data(), batch_.size(), first_);
        batch_.clear();
    }

  private:
    ImageFile& image_;
    std::vector<support::Block> batch_;
    std::uint64_t first_ = 0;
};

support::TypeCounts MakePool(const Order& order) {
    const std::vector<std::uint8_t> plan = support::PlanPool(order.wish);
    const support::BlockContent content(order.wish.seed);
    ImageFile image(order.output);
    image.Clear(plan.size() * kBlockBytes);
    BlockWriter writer(image);
    writer.Add(0, content.MakeLabel());
    support::TypeCounts counts{};
    counts[support::kUserType] = 1;
    std::uint64_t internal = 0;
    for (std::uint64_t number = 1; number < plan.size(); ++number) {
        const std::size_t type = plan[number];
        const bool decoy = type != support::kUserType && ++internal % kDecoyEvery == 0;
        if (const auto block = content.Make(number, type, decoy)) {
            writer.Add(number, *block);
        }
        ++counts[type];
    }
    writer.Flush();
    image.Close();
    return counts;
}

void PrintFacts(const support::PoolWish& wish, const support::TypeCounts& counts) {
    std::printf("{\"size\": %ju, \"blocks\": %ju, \"seed\": %ju, \"superblock\": \"%s\",\n",
                std::uintmax_t{wish.blocks * kBlockBytes}, std::uintmax_t{wish.blocks},
                std::uintmax_t{wish.seed}, support::kPoolTypes[wish.superblock].magic.data());
    std::printf(" \"types\": {");
    for (std::size_t type = 0; type < counts.size(); ++type) {
        std::printf("%s\"%s\": %ju", type == 0 ? "" : ", ", support::kPoolTypes[type].name.data(),
                    std::uintmax_t{counts[type]});
    }
    std::printf("}}\n");
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Order order = ParseOrder(argc, argv);
        PrintFacts(order.wish, MakePool(order));
        return std::fflush(stdout) == 0 ? 0 : 1;
    } catch (const std::invalid_argument& wrong) {
        std::fprintf(stderr, "mkpool: %s\n%s", wrong.what(), kUsage);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "mkpool: %s\n", failure.what());
    }
    return 1;
}
