#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "util/common/crc.h"
#include "util/common/guid.h"
#include "util/common/scanFileFormat.h"
#include "util/common/tXML.h"
#include "util/common/zsbFile.h"
#include "util/ostrelscan/blockSelector.h"

namespace {

constexpr std::uint64_t kFileLimit = 10 << 20;
constexpr std::uint64_t kSampleBlocks = 1 << 20;

/// A folder in memory, gone with the object.
class Folder {
  public:
    Folder() {
        std::string path = "/dev/shm/micro-XXXXXX";
        if (mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no folder in memory");
        }
        path_ = path + '/';
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& Path() const { return path_; }

  private:
    std::string path_;
};

/// Records as a pool has them: ascending keys, small numbers, and some that are anything.
std::vector<QuadAndBlock_s> MakeRecords(std::size_t count) {
    std::mt19937 noise(1);
    std::vector<QuadAndBlock_s> records(count);
    for (std::size_t i = 0; i < count; ++i) {
        records[i].blockNumber = i + 1;
        char* end = records[i].block;
        while (end + 16 <= records[i].block + kPoolBlockSize) {
            const std::uint64_t entry[] = {i * 1000 + static_cast<unsigned char>(*end),
                                           noise() & 0xFFFFF};
            end = std::copy_n(reinterpret_cast<const char*>(entry), sizeof entry, end);
        }
        std::copy_n(i % 2 == 0 ? "BRCH" : "LEAF", 4, records[i].block);
    }
    return records;
}

const std::vector<QuadAndBlock_s>& Records() {
    static const std::vector<QuadAndBlock_s> records = MakeRecords(2555);
    return records;
}

void CountBytes(benchmark::State& state, std::size_t each) {
    state.SetBytesProcessed(static_cast<std::int64_t>(each) *
                            static_cast<std::int64_t>(state.iterations()));
}

void UpdateCRC(benchmark::State& state) {
    std::uint32_t crc = 0xFFFFFFFF;
    std::size_t next = 0;
    for ([[maybe_unused]] auto _ : state) {
        crc = Ostrel::updateCRC(crc, &Records()[next], sizeof(QuadAndBlock_s));
        next = (next + 1) % 8;  // in the near cache, as a record is
    }
    benchmark::DoNotOptimize(crc);
    CountBytes(state, sizeof(QuadAndBlock_s));
}
BENCHMARK(UpdateCRC);

void Classification(benchmark::State& state) {
    BlockSelector selector;
    std::vector<QuadAndBlock_s> blocks = MakeRecords(16);
    for (std::size_t i = 1; i < blocks.size(); ++i) {
        std::copy_n("data", 4, blocks[i].block);  // most blocks of a pool are of no known type
    }
    std::size_t next = 0;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(selector.Account(blocks[next].block));
        next = (next + 1) % blocks.size();
    }
}
BENCHMARK(Classification);

std::unique_ptr<ZSBFile> MakeWriter(const std::string& path, bool compress) {
    static const std::string poolName = "DATA";
    static const GUID_t scanID{};
    return std::make_unique<ZSBFile>(path.c_str(), &poolName, true, &scanID, compress, 0,
                                     kSampleBlocks, -1, kFileLimit);
}

void WriteFile(ZSBFile& file) {
    file.CreateNext(true);
    for (const QuadAndBlock_s& record : Records()) {
        if (file.QuadAndBlockWrite(&record) != 0) {
            throw std::runtime_error("a record could not be written");
        }
    }
    file.CreateClose(true, false, false, false, nullptr);
}

/// A file of records, each time the same one, from its creation to its close.
void WriteRecords(benchmark::State& state, bool compress) {
    const Folder folder;
    for ([[maybe_unused]] auto _ : state) {
        const auto file = MakeWriter(folder.Path(), compress);
        WriteFile(*file);
    }
    CountBytes(state, Records().size() * sizeof(QuadAndBlock_s));
}

void ReadRecords(benchmark::State& state, bool compress) {
    const Folder folder;
    WriteFile(*MakeWriter(folder.Path(), compress));
    const auto file = ZSBFile::ForReading(folder.Path().c_str());
    QuadAndBlock_s record{};
    for ([[maybe_unused]] auto _ : state) {
        file->Open(ZSBFile::kOpenAny, 0, 0);
        std::size_t count = 0;
        while (file->QuadAndBlockRead(&record, nullptr) == 0) {
            ++count;
        }
        file->OpenClose();
        if (count != Records().size()) {
            throw std::runtime_error("records are missing");
        }
    }
    CountBytes(state, Records().size() * sizeof(QuadAndBlock_s));
}

void RecordWrite(benchmark::State& state) {
    WriteRecords(state, false);
}
BENCHMARK(RecordWrite);

void RecordRead(benchmark::State& state) {
    ReadRecords(state, false);
}
BENCHMARK(RecordRead);

void Deflate(benchmark::State& state) {
    WriteRecords(state, true);
}
BENCHMARK(Deflate);

void Inflate(benchmark::State& state) {
    ReadRecords(state, true);
}
BENCHMARK(Inflate);

void ReplyScan(benchmark::State& state) {
    const std::string reply =
        "<ostrelReply><result value=\"0\"/><pool><getPoolInfo><result value=\"0\"/><basicInfo>"
        "<poolName>DATA</poolName><poolState>maintenance</poolState>"
        "<poolGUID>01234567-89ab-0cde-8f-10-112233445566</poolGUID></basicInfo></getPoolInfo>"
        "</pool></ostrelReply>";
    const char* const path = "<ostrelReply><pool><getPoolInfo><basicInfo><poolGUID>";
    std::string content;
    for ([[maybe_unused]] auto _ : state) {
        TXML::GetOstrelReplyResultValueT(reply);
        TXML::GetPoolBasicInfoReplyResultValueT(reply);
        if (TXML::MOSTREL_GetSpecificTemplate(path, reply.size(), reply.c_str(), content) != 0) {
            throw std::runtime_error("the reply has no GUID");
        }
    }
    CountBytes(state, reply.size());
}
BENCHMARK(ReplyScan);

}  // namespace

BENCHMARK_MAIN();
