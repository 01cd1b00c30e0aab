#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "sim/controlCommands.h"
#include "sim/textTools.h"
#include "sim/wire.h"

namespace {

constexpr const char* kUsage =
    R"(Usage: ostrelsimctl [--socket PATH] [--connect-timeout SECONDS] COMMAND ...

  list                                   pools, volumes, jobs, open management files,
                                         registrations, waiting faults
  state POOL STATE [--forced] [--timeout SECONDS]
  volume-state VOLUME STATE [--forced] [--timeout SECONDS]
  rename POOL NAME [--timeout SECONDS]
  volume-rename VOLUME NAME [--timeout SECONDS]
  volume-delete VOLUME [--timeout SECONDS]
  volume-zid VOLUME [--timeout SECONDS]
  event EVENT [--guid GUID] [--from N] [--to N] [--mode N] [--notify N] [--old-name TEXT]
              [--new-name TEXT] [--new-guid GUID] [--timeout SECONDS]
  fault KIND [ARGUMENT] [--next N] [--after N]
      refuse [STATUS], result STATUS, operation-result STATUS, reply TEXT, size BYTES,
      malformed [cut|empty|not-xml|no-result|no-operation-result|no-attribute],
      bad-guid, no-value, slow MILLISECONDS, eio-open, eio-switch, eio-write, eio-read,
      bus-refuse [STATUS], bus-refuse-unregister [STATUS], clear
  bad POOL none|BLOCKS [read|write]      blocks of a served image that fail, such as 5,7-9
  job KEY finish [STATUS [SETTER]]
  trace                                  every exchange so far
  shutdown

STATE is "active", "deactive", "maintenance" or "mounted". Without --timeout (or with --wait)
the command waits until every consumer has answered. Exit status: 0 done, 1 refused by a
consumer, 2 error, 3 a consumer did not answer in time.
)";

struct Settings {
    std::string socket = sim::DefaultSocketPath();
    std::chrono::milliseconds patience{0};
    sim::Message message{"control"};
};

// Empty when the arguments are wrong.
Settings ReadArguments(std::vector<std::string> words) {
    Settings settings;
    while (words.size() >= 2 && words[0].starts_with("--")) {
        if (words[0] == "--socket") {
            settings.socket = words[1];
        } else if (words[0] == "--connect-timeout" && sim::ToNumber(words[1]).has_value()) {
            settings.patience = std::chrono::seconds(*sim::ToNumber(words[1]));
        } else {
            return settings;
        }
        words.erase(words.begin(), words.begin() + 2);
    }
    settings.message.insert(settings.message.end(), words.begin(), words.end());
    return settings;
}

int Connect(const Settings& settings) {
    const auto end = std::chrono::steady_clock::now() + settings.patience;
    while (true) {
        const int descriptor = sim::ConnectToService(settings.socket);
        if (descriptor >= 0 || std::chrono::steady_clock::now() >= end) {
            return descriptor;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

// Prints the lines of the reply and gives the exit status.
int PrintReply(sim::MessageSocket& service) {
    std::vector<std::string> lines;
    while (const auto message = service.Receive()) {
        if (message->size() == 2 && message->front() == "line") {
            lines.push_back(message->back());
        } else if (message->size() == 2 && message->front() == "end") {
            const int status = static_cast<int>(sim::ToNumber(message->back()).value_or(2));
            std::ostream& out = status == sim::kExitError ? std::cerr : std::cout;
            for (const std::string& line : lines) {
                out << (status == sim::kExitError ? "ostrelsimctl: " : "") << line << "\n";
            }
            return status;
        }
    }
    std::cerr << "ostrelsimctl: the service has gone\n";
    return sim::kExitError;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && (words[0] == "--help" || words[0] == "-h")) {
        std::cout << kUsage;
        return sim::kExitDone;
    }
    const Settings settings = ReadArguments(words);
    if (settings.message.size() < 2) {
        std::cerr << kUsage;
        return sim::kExitError;
    }
    const int descriptor = Connect(settings);
    if (descriptor < 0) {
        std::cerr << "ostrelsimctl: no service at " << settings.socket << ": "
                  << std::strerror(errno) << "\n";
        return sim::kExitError;
    }
    sim::MessageSocket service(descriptor);
    service.Send(settings.message);
    return PrintReply(service);
}
