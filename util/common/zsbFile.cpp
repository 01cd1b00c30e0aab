#include "util/common/zsbFile.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/scanFileCheck.h"

ZSBFile::ZSBFile(const char* zsbFilePath, const std::string* givenPoolName, bool bypassing,
                 const GUID_t* givenScanID, bool compressing, int set, unsigned long long blocks,
                 int compSpeed, unsigned long long sizeLimit)
    : ZSBFile({.path = zsbFilePath,
               .poolName = givenPoolName != nullptr ? *givenPoolName : ScanFileSettings().poolName,
               .bypass = bypassing,
               .scanID = givenScanID != nullptr ? std::optional(*givenScanID) : std::nullopt,
               .compress = compressing,
               .setNumber = set,
               .poolBlocks = blocks,
               .level = compSpeed,
               .sizeLimit = sizeLimit}) {}

ZSBFile::ZSBFile(ScanFileSettings settings)
    : writer_(settings), ZF_Path(std::move(settings.path)), readFileNumber(settings.firstFile) {}

std::unique_ptr<ZSBFile> ZSBFile::ForReading(const char* zsbFilePath, const std::string* poolName) {
    ScanFileSettings settings{.path = zsbFilePath};
    if (poolName != nullptr) {
        settings.poolName = *poolName;
    }
    return std::make_unique<ZSBFile>(std::move(settings));
}

ZSBFile::~ZSBFile() = default;

const char* ZSBFile::AppendNameSet(const char* text) {
    return writer_.SetPrefix(text).c_str();
}

void ZSBFile::AppendNameClear() {
    writer_.SetPrefix("");
}

void ZSBFile::SetName(const std::string& path, bool zsb) {
    fullName = path;
    nameValid = true;
    isZSB = zsb;
}

int ZSBFile::CreateNext(bool zsb) {
    if (AnyFileOpen()) {
        return zERR_INVALID_STATE;
    }
    const std::optional<std::string> path = writer_.NextPath(zsb);
    if (!path.has_value()) {
        return zERR_BAD_PARAMETER_VALUE;
    }
    SetName(*path, zsb);
    if (trace) {
        LogLine() << "Creating file called " << fullName << '\n';
    }
    // Offset and CRC begin anew; the header image stays where the file cannot be created.
    reader_.Rewind();
    const int status = writer_.Create(zsb);
    read_ = read_ && status != 0;
    return status;
}

int ZSBFile::QuadAndBlockWrite(const QuadAndBlock_s* record) {
    return writer_.Append(reinterpret_cast<const unsigned char*>(record), kRecordSize);
}

void ZSBFile::DataWriteOffsetUpdate(unsigned long length) {
    if (read_) {
        reader_.Skip(length);
        writer_.ReachEnd(reader_.Offset());
    } else {
        writer_.MoveOffset(length);
    }
}

int ZSBFile::HeaderFillIn(unsigned long flags) {
    writer_.FillInHeader(static_cast<std::uint32_t>(flags));
    if (read_) {
        ScanFileHeader_s image = writer_.Header();
        image.crc = reader_.Crc();
        reader_.UseHeader(image);
    }
    return 0;
}

unsigned long long ZSBFile::BlocksInFileEstimateGet() const {
    return writer_.IsOpen() ? writer_.RecordsOfAFullFile() : 0;
}

int ZSBFile::CreateClose(bool lastFile, bool userStop, bool stateChange, bool fourth,
                         unsigned long* crcOut) {
    if (!writer_.IsOpen()) {
        return zERR_INVALID_STATE;
    }
    nameValid = false;
    return writer_.Close({lastFile, userStop, stateChange, fourth}, crcOut);
}

int ZSBFile::CopyZSBHeader(ScanFileHeader_s* out) const {
    *out = Header();
    return 0;
}

void ZSBFile::SFHGet_ScanID(GUID_t* out) const {
    *out = Header().scanID;
}

void ZSBFile::CurrentFullName(std::string& out) const {
    if (!nameValid) {
        throw std::runtime_error("No valid ZSB filename available at this time");
    }
    out = fullName;
}

bool ZSBFile::IsZSB() const {
    if (!nameValid) {
        throw std::runtime_error("No valid filename available at this time");
    }
    return isZSB;
}

int ZSBFile::OpenValidate() {
    ScanFileCheck check(reader_,
                        [this](const char* text, std::uint64_t) { QuadAndBlockWarningSet(text); });
    const int status = check.Validate();
    QuadAndBlockErrorSet(check.Fault());
    return status;
}

int ZSBFile::OpenSearch(QuadAndBlock_s* out, unsigned long long block) {
    ScanFileCheck check(reader_,
                        [this](const char* text, std::uint64_t) { QuadAndBlockWarningSet(text); });
    const int status = check.Search(out, block);
    QuadAndBlockErrorSet(check.Fault());
    return status;
}

int ZSBFile::QuadAndBlockRead(QuadAndBlock_s* out, unsigned long long* offset) {
    if (reader_.IsOpen() && offset != nullptr) {
        *offset = reader_.Offset();
    }
    return reader_.Read(out);
}

void ZSBFile::DataReadOffsetUpdate(unsigned long length) {
    // A file being written keeps its own place.
    if (reader_.IsOpen()) {
        reader_.Skip(length);
    }
}

std::uint32_t ZSBFile::LastFile() const {
    return AnyFileOpen() ? Header().flags & kFlagLastFile : 0;
}

unsigned long long ZSBFile::BlocksInFileGet() const {
    return AnyFileOpen() ? RecordsInDataBytes(Header().dataBytes) : 0;
}

void ZSBFile::SFHGet_PoolName(char* out, unsigned size) const {
    std::fill_n(out, size, '\0');
    const ScanFileHeader_s& header = Header();
    for (unsigned i = 0; i + 1 < size && i < std::size(header.poolName); ++i) {
        const std::uint16_t unit = header.poolName[i];
        if (unit == 0) {
            return;
        }
        out[i] = static_cast<char>(unit & 0xFF);
    }
}
