#include "sim/settings.h"

#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <iostream>

#include "sim/textTools.h"
#include "sim/wire.h"

namespace sim {

const char* const kServiceUsage =
    R"(Usage: ostrelsim [OPTION]... [-- COMMAND [ARGUMENT]...]

Stands in for the storage service: publishes its management file and pool devices under a mount
point and its event bus and control commands on a Unix socket.

  --config FILE                     pools, volumes and bad blocks, one on a line
  --pool NAME,GUID,STATE[,DEVICE]   a pool; GUID "-" composes one; an image file as DEVICE is
                                    shown as MOUNTPOINT/Devices/NAME
  --volume NAME,GUID,STATE[,DEVICE]
  --bad POOL,BLOCKS[,read|write]    blocks of a shown image that fail, such as P,5+7-9
  --mount DIR                       mount point, "/_admin" if not given
  --socket PATH                     $OSTRELSIM_SOCKET or "/run/ostrelsim.sock" if not given
  --private                         mount in a mount namespace of its own
  --help

It serves until it is told to end (ostrelsimctl shutdown, SIGTERM, SIGINT). With a COMMAND it
serves while that runs, in the same namespace, and ends with its exit status.
)";

namespace {

std::vector<std::string> Rest(const std::vector<std::string>& words) {
    return {words.begin() + 1, words.end()};
}

void AddBadList(Settings& settings, const std::vector<std::string>& words) {
    const std::string what = words.size() == 3 ? words[2] : "both";
    if (words.size() < 2 || words.size() > 3 ||
        (what != "both" && what != "read" && what != "write")) {
        throw SettingsError("bad blocks need a pool, a list and perhaps read or write");
    }
    auto blocks = BadBlocksFromText(words[1], what != "write", what != "read");
    if (blocks.empty()) {
        throw SettingsError("\"" + words[1] + "\" is no list of blocks");
    }
    settings.badLists.push_back({words[0], std::move(blocks)});
}

void ReadLine(Settings& settings, std::string line) {
    line.resize(std::min(line.find('#'), line.size()));
    const auto words = SplitWords(line);
    if (words.empty()) {
        return;
    }
    if (words[0] == "pool" || words[0] == "volume") {
        AddObject(settings, words[0] == "pool" ? ObjectKind::Pool : ObjectKind::Volume,
                  Rest(words));
    } else if (words[0] == "bad") {
        AddBadList(settings, Rest(words));
    } else {
        throw SettingsError("\"" + words[0] + "\" is neither pool nor volume nor bad");
    }
}

// The commas of an option part its words, so the blocks' own commas are written "+" there.
std::vector<std::string> BadWords(const std::string& value) {
    auto words = Split(value, ',');
    if (words.size() > 1) {
        for (char& c : words[1]) {
            c = c == '+' ? ',' : c;
        }
    }
    return words;
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): in the order of the command line
void ReadOption(Settings& settings, const std::string& option, const std::string& value) {
    if (option == "--config") {
        ReadConfiguration(settings, value);
    } else if (option == "--pool") {
        AddObject(settings, ObjectKind::Pool, Split(value, ','));
    } else if (option == "--volume") {
        AddObject(settings, ObjectKind::Volume, Split(value, ','));
    } else if (option == "--bad") {
        AddBadList(settings, BadWords(value));
    } else if (option == "--mount") {
        settings.mountPoint = value;
    } else if (option == "--socket") {
        settings.socket = value;
    } else {
        throw SettingsError("there is no option " + option);
    }
}

// Only an image file is opened: a block device stays its user's own.
std::shared_ptr<DeviceFile> OpenImage(const StoredObject& pool) {
    struct stat facts {};
    if (pool.device.empty() || stat(pool.device.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode)) {
        return nullptr;
    }
    auto image = DeviceFile::Open(pool.device);
    if (!image) {
        throw SettingsError("could not open " + pool.device + ": " + std::strerror(errno));
    }
    return image;
}

void AddAll(Service& service, ObjectKind kind, const std::vector<StoredObject>& objects) {
    for (StoredObject object : objects) {
        if (kind == ObjectKind::Pool) {
            object.image = OpenImage(object);
        }
        const std::string name = object.name;
        if (!service.Add(kind, std::move(object))) {
            throw SettingsError("the name or GUID of " + std::string(KindName(kind)) + " " + name +
                                " is given twice");
        }
    }
}

}  // namespace

void AddObject(Settings& settings, ObjectKind kind, const std::vector<std::string>& words) {
    if (words.size() < 3 || words.size() > 4) {
        throw SettingsError("a " + std::string(KindName(kind)) +
                            " needs name, GUID, state and perhaps device");
    }
    if (!IsPlainName(words[0]) || !IsPlainName(words[2])) {
        throw SettingsError("\"" + words[IsPlainName(words[0]) ? 2 : 0] + "\" can be no name");
    }
    const auto guid = words[1] == "-" ? GuidFromName(std::string(KindName(kind)) + " " + words[0])
                                      : GuidFromText(words[1]);
    if (!guid) {
        throw SettingsError("\"" + words[1] + "\" is no GUID");
    }
    auto& list = kind == ObjectKind::Pool ? settings.pools : settings.volumes;
    list.push_back({words[0], *guid, words[2], words.size() == 4 ? words[3] : ""});
}

void ReadConfiguration(Settings& settings, const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw SettingsError("could not open " + path + ": " + std::strerror(errno));
    }
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        try {
            ReadLine(settings, line);
        } catch (const SettingsError& error) {
            throw SettingsError(path + ":" + std::to_string(number) + ": " + error.what());
        }
    }
}

Settings ReadCommandLine(const std::vector<std::string>& words) {
    Settings settings;
    settings.socket = DefaultSocketPath();
    for (auto word = words.begin(); word != words.end(); ++word) {
        if (*word == "--") {
            settings.command.assign(std::next(word), words.end());
            break;
        }
        if (*word == "--private") {
            settings.privateMounts = true;
            continue;
        }
        const std::string& option = *word;
        if (++word == words.end()) {
            throw SettingsError("the option " + option + " needs a value or is unknown");
        }
        ReadOption(settings, option, *word);
    }
    return settings;
}

// Bad blocks come last: a list may stand before its pool.
void FillService(Service& service, const Settings& settings) {
    AddAll(service, ObjectKind::Pool, settings.pools);
    AddAll(service, ObjectKind::Volume, settings.volumes);
    for (const Settings::BadList& list : settings.badLists) {
        const auto pool = service.Find(ObjectKind::Pool, list.pool);
        if (!pool || !pool->image) {
            throw SettingsError("pool " + list.pool + " has no image that could have bad blocks");
        }
        auto bad = pool->image->Bad();
        bad.insert(bad.end(), list.blocks.begin(), list.blocks.end());
        pool->image->SetBadBlocks(std::move(bad));
    }
}

}  // namespace sim
