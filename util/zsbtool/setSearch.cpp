#include "util/zsbtool/setSearch.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "util/zsbtool/failure.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

namespace fs = std::filesystem;

/// The kinds of names, in the order in which a restore prefers them.
constexpr ScanFileName kKinds[] = {{'T', true}, {'C', true}, {'T', false}, {'C', false}};

bool Allowed(const ScanFileName& kind, const ScanSetChoice& choice) {
    return kind.letter == choice.letter.value_or(kind.letter) &&
           kind.restorable == choice.restorable.value_or(kind.restorable);
}

class Search {
  public:
    explicit Search(const ScanSetChoice& choice) : choice_(choice) {}

    void Visit(const std::string& folder) {
        std::vector<std::string> below;
        std::vector<ScanFileName> names;
        std::error_code error;
        fs::directory_iterator entry(folder, error);
        for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
            std::error_code ignored;
            if (entry->is_directory(ignored) && !entry->is_symlink(ignored)) {
                below.push_back(entry->path());
            } else if (const auto name = ScanFileName::Parse(entry->path().filename().native())) {
                names.push_back(*name);
            }
        }
        if (error) {
            found.unreadable.push_back(Printable(folder) + ": " + error.message());
        }
        AddSets(folder, names);
        std::ranges::sort(below);
        std::ranges::for_each(below, [this](const std::string& one) { Visit(one); });
    }

    FoundSets found;

  private:
    void AddSets(const std::string& folder, const std::vector<ScanFileName>& names) {
        for (const ScanFileName& kind : kKinds) {
            const auto same = [&kind](const ScanFileName& name) { return name.SameKind(kind); };
            if (Allowed(kind, choice_) && std::ranges::any_of(names, same)) {
                found.sets.push_back(ListScanSet(folder, {kind.letter, kind.restorable}));
            }
        }
    }

    const ScanSetChoice choice_;
};

}  // namespace

FoundSets FindSets(const std::string& folder, const ScanSetChoice& choice) {
    std::error_code error;
    const fs::directory_iterator readable(folder, error);
    if (error) {
        throw Failure(Printable(folder), error.value());
    }
    Search search(choice);
    search.Visit(folder);
    return std::move(search.found);
}

}  // namespace zsbtool
