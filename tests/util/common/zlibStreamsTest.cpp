#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstddef>
#include <span>

#include "tests/support/capturedLog.h"
#include "util/common/zlibStreams.h"

namespace {

/// So many zero bytes that take no memory.
class Zeros {
  public:
    explicit Zeros(std::size_t size)
        : size_(size),
          start_(
              mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {}
    ~Zeros() {
        if (start_ != MAP_FAILED) {
            munmap(start_, size_);
        }
    }
    Zeros(const Zeros&) = delete;
    Zeros& operator=(const Zeros&) = delete;

    std::span<const unsigned char> Bytes() const {
        return start_ != MAP_FAILED ? std::span(static_cast<const unsigned char*>(start_), size_)
                                    : std::span<const unsigned char>();
    }

  private:
    std::size_t size_;
    void* start_;
};

TEST(Deflater, TakesMoreInputThanZlibCounts) {
    const Zeros zeros(std::size_t{1} << 32);
    ASSERT_EQ(zeros.Bytes().size(), std::size_t{1} << 32);
    const support::CapturedLog log;  // the stream is left in its middle
    Deflater deflater(0);
    deflater.Offer(zeros.Bytes());
    EXPECT_FALSE(deflater.InputConsumed());
    // Uncompressed output is as long as its input: more of both is needed than one run takes.
    EXPECT_EQ(deflater.Run(Z_NO_FLUSH), Z_OK);
    EXPECT_TRUE(deflater.OutputFull());
    EXPECT_FALSE(deflater.InputConsumed());
    deflater.EmptyOutput();
    EXPECT_EQ(deflater.Run(Z_FINISH), Z_OK);
}

TEST(Deflater, DropsItsInputWithAReset) {
    const Zeros zeros(std::size_t{1} << 32);
    ASSERT_EQ(zeros.Bytes().size(), std::size_t{1} << 32);
    Deflater deflater(0);
    deflater.Offer(zeros.Bytes());
    EXPECT_EQ(deflater.Reset(), Z_OK);
    EXPECT_TRUE(deflater.InputConsumed());
    EXPECT_EQ(deflater.Run(Z_FINISH), Z_STREAM_END);
    EXPECT_LT(deflater.Output().size(), 20U);
}

}  // namespace
