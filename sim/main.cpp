#include <sched.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "sim/fuseFiles.h"
#include "sim/mountPoint.h"
#include "sim/settings.h"
#include "sim/simulation.h"
#include "sim/socketServer.h"

namespace {

sigset_t AwaitedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        sigaddset(&signals, number);
    }
    return signals;
}

void EnterPrivateNamespace() {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        throw std::runtime_error(std::string("no mount namespace of its own: ") +
                                 std::strerror(errno));
    }
}

// Starts the command with the signals as a program expects them.
pid_t Start(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_t attributes{};
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, arguments[0], nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        throw std::runtime_error("could not run " + command.front() + ": " + std::strerror(error));
    }
    return child;
}

// The exit status of the command. A terminal's SIGINT reaches the command by itself; a request to
// end is handed on.
int WaitForCommand(pid_t child) {
    const sigset_t signals = AwaitedSignals();
    while (true) {
        int number = 0;
        sigwait(&signals, &number);
        if (number == SIGTERM || number == SIGHUP) {
            kill(child, SIGTERM);
        }
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) {
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
    }
}

void WaitForEnd() {
    const sigset_t signals = AwaitedSignals();
    int number = SIGCHLD;
    while (number == SIGCHLD) {
        sigwait(&signals, &number);
    }
}

int Serve(const sim::Settings& settings) {
    sim::Simulation simulation(sim::FuseCallInterrupted);
    sim::FillService(simulation.service, settings);
    if (settings.privateMounts) {
        EnterPrivateNamespace();
    }
    // Taken apart from the last to the first: the waits end before what waits is ended.
    const sim::MountPoint mountPoint(settings.mountPoint);
    const sim::FuseMount mount(simulation.tree, settings.mountPoint);
    const sim::SocketServer server(simulation, settings.socket);
    struct Stopper {
        sim::Simulation& simulation;
        ~Stopper() { simulation.Stop(); }
    } const stopper{simulation};
    std::cerr << "ostrelsim: serving " << settings.pools.size() << " pools and "
              << settings.volumes.size() << " volumes at " << settings.mountPoint << ", socket "
              << settings.socket << ", process " << getpid() << std::endl;
    if (!settings.command.empty()) {
        return WaitForCommand(Start(settings.command));
    }
    WaitForEnd();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && (words[0] == "--help" || words[0] == "-h")) {
        std::cout << sim::kServiceUsage;
        return 0;
    }
    // Before there is a second thread, so that all of them leave the signals to the one that waits.
    const sigset_t signals = AwaitedSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    try {
        const sim::Settings settings = sim::ReadCommandLine(words);
        // For the command behind "--", and for its children.
        setenv("OSTRELSIM_SOCKET", settings.socket.c_str(), 1);
        return Serve(settings);
    } catch (const std::exception& error) {
        std::cerr << "ostrelsim: " << error.what() << "\n";
        return 2;
    }
}
