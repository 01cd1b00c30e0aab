#include "util/common/scanSetNames.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <tuple>

namespace {

constexpr std::size_t kNameLength = 12;
constexpr std::size_t kSetDigits = 2;
constexpr std::string_view kSaved = ".ZSB";
constexpr std::string_view kRestorable = ".ZRB";

[[noreturn]] void Refuse(const std::string& path, int error) {
    throw std::system_error(error, std::generic_category(), path);
}

bool IsDirectory(const std::string& path) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0) {
        Refuse(path, errno);
    }
    return S_ISDIR(facts.st_mode);
}

std::vector<ScanFileName> ReadFolder(const std::string& folder) {
    std::vector<ScanFileName> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(folder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (const auto name = ScanFileName::Parse(entry->path().filename().native())) {
            names.push_back(*name);
        }
    }
    if (error) {
        Refuse(folder, error.value());
    }
    const auto key = [](const ScanFileName& name) {
        return std::tuple(!name.restorable, name.letter != 'T', name.setNumber, name.fileNumber);
    };
    std::ranges::sort(names, {}, key);
    return names;
}

/// The name whose set is meant: the best of those with file 0, else the best there is. `names`
/// stand in the order in which a restore would take them.
const ScanFileName* Choose(const std::vector<ScanFileName>& names, const ScanSetChoice& choice) {
    const ScanFileName* best = nullptr;
    for (const ScanFileName& name : names) {
        const bool wanted = name.letter == choice.letter.value_or(name.letter) &&
                            name.restorable == choice.restorable.value_or(name.restorable);
        if (wanted && name.setNumber == 0 && name.fileNumber == 0) {
            return &name;
        }
        if (wanted && best == nullptr) {
            best = &name;
        }
    }
    return best;
}

ScanSetListing Listing(std::string folder, const std::vector<ScanFileName>& names,
                       const ScanFileName& first) {
    ScanSetListing listing{std::move(folder), first, {}};
    for (const ScanFileName& name : names) {
        if (name.SameKind(first)) {
            listing.names.push_back(name);
        }
        listing.otherLetter |= name.letter != first.letter;
        listing.otherEnding |= name.restorable != first.restorable;
    }
    return listing;
}

ScanSetListing ListFolder(const std::string& path, const ScanSetChoice& choice) {
    const std::string folder = path.ends_with('/') ? path : path + '/';
    const std::vector<ScanFileName> names = ReadFolder(folder);
    const ScanFileName* chosen = Choose(names, choice);
    if (chosen == nullptr) {
        throw std::runtime_error(path + ": there is no such set of scan files");
    }
    return Listing(folder, names, {chosen->letter, chosen->restorable, 0, 0});
}

ScanSetListing ListSetOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "./" : path.substr(0, slash + 1);
    const auto name = ScanFileName::Parse(
        std::string_view(path).substr(slash == std::string::npos ? 0 : slash + 1));
    if (!name) {
        throw std::runtime_error(path + ": is not named as a scan file");
    }
    return Listing(folder, ReadFolder(folder),
                   {name->letter, name->restorable, name->setNumber, 0});
}

}  // namespace

std::optional<ScanFileName> ScanFileName::Parse(std::string_view name) {
    const std::string_view digits = name.substr(std::min<std::size_t>(1, name.size()), 7);
    const bool restorable = name.ends_with(kRestorable);
    if (name.size() != kNameLength || (name[0] != 'T' && name[0] != 'C') ||
        (!restorable && !name.ends_with(kSaved)) ||
        digits.find_first_not_of("0123456789") != std::string_view::npos) {
        return {};
    }
    const auto number = [](std::string_view text) {
        return static_cast<unsigned>(std::stoul(std::string(text)));
    };
    return ScanFileName{name[0], restorable, number(digits.substr(0, kSetDigits)),
                        number(digits.substr(kSetDigits))};
}

std::string ScanFileName::Text() const {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%c%02u%05u%s", letter, setNumber, fileNumber,
                  restorable ? kRestorable.data() : kSaved.data());
    return text.data();
}

ScanSetListing ListScanSet(const std::string& path, const ScanSetChoice& choice) {
    return IsDirectory(path) ? ListFolder(path, choice) : ListSetOf(path);
}
