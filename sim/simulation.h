#pragma once

#include "sim/busHub.h"
#include "sim/changes.h"
#include "sim/faults.h"
#include "sim/fileTree.h"
#include "sim/jobs.h"
#include "sim/manageFile.h"
#include "sim/requests.h"
#include "sim/service.h"
#include "sim/trace.h"

namespace sim {

/// Everything that one running service consists of, but the ways in: the mount and the socket.
struct Simulation {
    Trace trace{};
    Faults faults{};
    Service service{};
    Jobs jobs{};
    BusHub hub{trace};
    Changes changes{service, hub, trace};
    Requests requests{service, jobs, changes};
    ManageContext manage;
    Conversations conversations{manage};
    FileTree tree{service, jobs, conversations};

    /// `interrupted` is asked on the threads that serve files and tells whether the call that waits
    /// now has been given up.
    explicit Simulation(std::function<bool()> interrupted)
        : manage{requests, faults, trace, std::move(interrupted)} {}

    /// Ends every wait: for answers from the bus, and of slow replies.
    void Stop() {
        manage.stopping = true;
        hub.Stop();
    }
};

}  // namespace sim
