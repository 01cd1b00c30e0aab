#pragma once

#include <zlib.h>

#include <array>
#include <cstddef>
#include <functional>
#include <span>

/// zlib's compressor with the output buffer that stands between it and the file. One stream at a
/// time; `Reset` begins the next.
class Deflater {
  public:
    /// Takes what waits in the output buffer; returns 0, or a status that ends the call.
    using Sink = std::function<int(std::span<const unsigned char>)>;

    /// `level` is zlib's, -1 its default. Throws std::invalid_argument when zlib refuses it.
    explicit Deflater(int level);
    ~Deflater();
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    /// Compresses `data`, of any length; the output goes to `sink` in whole buffers. Returns 0,
    /// zlib's result or the sink's status.
    int Compress(std::span<const unsigned char> data, const Sink& sink);
    /// Ends the stream, and hands the rest of the output to `sink`. Returns the same.
    int Finish(const Sink& sink);

    /// Makes `data`, of any length, the input; it must stay valid until it is consumed.
    void Offer(std::span<const unsigned char> data);
    /// Whether zlib has taken all of it.
    bool InputConsumed() const { return stream_.avail_in == 0 && input_.empty(); }

    /// Runs deflate once; returns zlib's result. `flush` counts from the last piece of the input
    /// on.
    int Run(int flush);

    bool OutputFull() const { return stream_.avail_out == 0; }
    /// What waits in the output buffer.
    std::span<const unsigned char> Output() const;
    /// Makes room of the whole buffer; what waited must have been written.
    void EmptyOutput();

    /// Begins a new stream with the input and output of the old one dropped; returns zlib's result.
    int Reset();

  private:
    int HandOver(const Sink& sink);

    static constexpr std::size_t kOutputSize = 16'384;
    /// zlib counts its input in an unsigned int, so long input reaches it in pieces.
    static constexpr std::size_t kInputPiece = 1'048'576;

    z_stream stream_{};
    std::span<const unsigned char> input_;  // what zlib has not been given yet
    std::array<unsigned char, kOutputSize> output_{};
};

/// zlib's decompressor with the input buffer that stands between it and the file.
class Inflater {
  public:
    /// Where zlib has no memory for it, every `Run` fails.
    Inflater();
    ~Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    /// The whole input buffer, to be refilled once no input is pending.
    std::span<unsigned char> InputBuffer() { return input_; }
    /// So many bytes of it are the input.
    void Refilled(std::size_t count);
    bool InputPending() const { return stream_.avail_in != 0; }
    /// Bytes of the input that were not taken yet.
    std::size_t InputLeft() const { return stream_.avail_in; }

    /// Makes `room` the output; it must stay valid while it is filled.
    void Offer(std::span<unsigned char> room);
    /// Bytes of the output still to be filled.
    std::size_t RoomLeft() const { return stream_.avail_out; }

    /// Runs inflate once; returns zlib's result.
    int Run();
    /// Begins again with the first byte of a stream; the input and output of the old one are
    /// dropped.
    void Reset();
    /// Whether a run has come to the stream's end.
    bool Ended() const { return ended_; }

  private:
    static constexpr std::size_t kInputSize = 16'384;

    z_stream stream_{};
    bool ended_ = false;
    std::array<unsigned char, kInputSize> input_{};
};
