#include "util/zsbtool/statusMeaning.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>

#include "util/common/ascii.h"
#include "util/common/errors.h"

namespace zsbtool {

namespace {

struct Explanation {
    std::int32_t number;
    const char* text;
};

/// What the tool means by the catalogue's statuses that it returns; the names of the others speak
/// for themselves.
constexpr Explanation kCatalogueTexts[] = {
    {0, "success"},
    {-1, "failed, or what was looked for is not there"},
    {zERR_NO_MEMORY, "out of memory"},
    {zERR_BUFFER_TOO_SMALL, "a record of a compressed file has the wrong size"},
    {zERR_BAD_PARAMETER_VALUE, "a wrong argument, or a restore that was refused"},
    {zERR_INVALID_STATE, "a call in the wrong state"},
    {zERR_MEDIA_CORRUPTED, "the header of a scan file is damaged"},
    {zERR_USER_ABORTED, "the operator stopped the run"},
    {zERR_END_OF_FILE, "the end of a file or device was reached"},
    {zERR_NO_FILES_FOUND, "the block is left out"},
    {zERR_UNABLE_TO_OPEN_BEAST, "a scan file could not be opened"},
    {zERR_ZID_NOT_FOUND, "a scan file is not there or could not be opened"},
    {zERR_POOL_STATE_INCOMPATIBLE, "the pool is not in the state that the run needs"},
    {zERR_VOLUME_STATE_CHANGE_REQUESTED,
     "a change of the pool's state was asked for during the run"},
    {zERR_COMPRESSION_NOT_ENABLED,
     "records of a compressed file cannot be reached by their offset"},
    {zERR_SUPERBLOCK_BAD_BLOCK_SIGNATURE, "block 1 of the device is no superblock"},
    {zERR_SUPERBLOCK_MISMATCH, "a block of the device differs from its saved image"},
    {zERR_GENERIC_OSTREL_ERROR, "a failure without a status of its own"},
};

/// Statuses of the tool that no catalogue names.
constexpr Explanation kOwnTexts[] = {
    {zSCAN_FILE_INVALID, "a scan file failed validation: no records, or a wrong CRC"},
    {zSHORT_DEVICE_READ, "a read from the device came back short without an error"},
    {zSHORT_DEVICE_WRITE, "a write to the device came back short without an error"},
    {zEVENT_REGISTRATION_FAILED, "the event bus refused a registration"},
    {zFILE_BEING_WRITTEN, "no failure: the scan file is still being written"},
};

struct CompressorResult {
    std::int32_t number;
    const char* name;
    const char* inflating;  ///< what it means of a stream that is read
    const char* deflating;  ///< and of one that is written
};

constexpr CompressorResult kCompressorResults[] = {
    {2, "Z_NEED_DICT", "the stream needs a dictionary that nobody has", nullptr},
    {-1, "Z_ERRNO", "a system error", nullptr},
    {-2, "Z_STREAM_ERROR", "the stream's state is broken",
     "what the compressor made could not be written to the scan file"},
    {-3, "Z_DATA_ERROR", "the compressed data is damaged", "the compressor's data is damaged"},
    {-4, "Z_MEM_ERROR", "no memory to inflate", "no memory to compress"},
    {-5, "Z_BUF_ERROR", "the compressed data ends too early", "the compressor made no progress"},
    {-6, "Z_VERSION_ERROR", "another version of the library", "another version of the library"},
};

template <std::size_t Size>
const char* FindText(const Explanation (&rows)[Size], std::int32_t number) {
    for (const Explanation& row : rows) {
        if (row.number == number) {
            return row.text;
        }
    }
    return nullptr;
}

const CompressorResult* FindResult(std::int64_t number) {
    for (const CompressorResult& row : kCompressorResults) {
        if (row.number == number) {
            return &row;
        }
    }
    return nullptr;
}

/// "zERR_END_OF_FILE" reads as "end of file".
std::string Spoken(std::string name) {
    const std::size_t prefix = name.find('_');
    name.erase(0, prefix == std::string::npos ? 0 : prefix + 1);
    for (char& character : name) {
        character = character == '_' ? ' ' : Ascii::ToLower(character);
    }
    return name;
}

std::optional<StatusMeaning> FromCatalogue(std::int32_t number) {
    std::string name = Ostrel::GetErrorFromNumber(number);
    if (number < -1) {
        name = QDS_NIT_GetErrorFromNumber(number);
    }
    if (name == "MM_UNKNOWN_ERROR" || name.find("ERR_UNKNOWN_ERROR") != std::string::npos) {
        return {};
    }
    name.erase(name.find_last_not_of(' ') + 1);
    const char* text = FindText(kCatalogueTexts, number);
    const std::string told = text != nullptr ? text : Spoken(name);
    return StatusMeaning{number, "catalogue", std::move(name), told};
}

/// The compressor's own results reach the log as they are.
std::optional<StatusMeaning> FromCompressor(std::int32_t number) {
    const CompressorResult* row = FindResult(number);
    if (row == nullptr || row->deflating == nullptr) {
        return {};
    }
    return StatusMeaning{number, "compressor", row->name, row->deflating};
}

std::optional<StatusMeaning> FromZlib(std::int32_t number) {
    const CompressorResult* row = FindResult(std::int64_t{number} - zINFLATE_ERROR_BASE);
    if (row == nullptr) {
        return {};
    }
    return StatusMeaning{number, "zlib", row->name, row->inflating};
}

/// A system error with the base that the tool puts to it, or bare, as flushing a device gives it.
std::optional<StatusMeaning> FromSystem(std::int32_t number) {
    const std::int64_t distance = std::int64_t{number} - zSYSTEM_ERROR_BASE;
    if (distance == 0) {
        return StatusMeaning{number, "system", {}, "no system error: a file ended too early"};
    }
    const std::int64_t error = distance > 0 ? distance : number;
    if (error <= 0 || error > std::numeric_limits<int>::max()) {
        return {};
    }
    const char* name = strerrorname_np(static_cast<int>(error));
    const char* text = strerrordesc_np(static_cast<int>(error));
    if (name == nullptr || text == nullptr) {
        return {};
    }
    // Runs that fail with a message of their own say 1, too.
    const std::string before = number == 1 ? "a failure that the log tells in words, or: " : "";
    return StatusMeaning{number, "system", name, before + text};
}

std::optional<StatusMeaning> FromOwn(std::int32_t number) {
    const char* text = FindText(kOwnTexts, number);
    if (text == nullptr) {
        return {};
    }
    return StatusMeaning{number, "catalogue", {}, text};
}

std::optional<std::int32_t> InRange(std::int64_t number) {
    if (number < std::numeric_limits<std::int32_t>::min() ||
        number > std::numeric_limits<std::uint32_t>::max()) {
        return {};
    }
    return static_cast<std::int32_t>(number);
}

std::optional<std::int32_t> ParseStatus(std::string_view text, int base) {
    std::int64_t number = 0;
    const auto [stop, error] =
        std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || stop != text.data() + text.size()) {
        return {};
    }
    return InRange(number);
}

}  // namespace

std::optional<StatusMeaning> ExplainStatus(std::int32_t number) {
    for (const auto source : {FromCompressor, FromOwn, FromZlib, FromSystem, FromCatalogue}) {
        if (std::optional<StatusMeaning> meaning = source(number)) {
            return meaning;
        }
    }
    return {};
}

std::string HexText(std::int32_t number) {
    std::array<char, 12> text{};
    std::snprintf(text.data(), text.size(), "%x", static_cast<unsigned>(number));
    return text.data();
}

std::optional<std::int32_t> ParseDecimalStatus(std::string_view text) {
    return ParseStatus(text, 10);
}

std::optional<std::int32_t> ParseHexStatus(std::string_view text) {
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
    }
    return text.starts_with('-') ? std::nullopt : ParseStatus(text, 16);
}

}  // namespace zsbtool
