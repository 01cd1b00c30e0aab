#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/support/capturedLog.h"
#include "tests/support/fileBytes.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/clock.h"
#include "util/ostrelscan/blockSelector.h"
#include "util/ostrelscan/scanEngine.h"

namespace support {

/// What a save is asked to do; a test changes what it is about.
struct Asked {
    unsigned long long start = 0;
    unsigned long long end = 0;
    bool compress = false;
    std::string poolName = "DATA";
    std::string path{};    ///< by default the directory of the test
    std::string device{};  ///< by default the file that stands in for the device
};

/// For tests that run a save over a file that stands in for a pool's device.
class EnginePass : public testing::Test {
  protected:
    /// A set number has two digits, and one process runs many tests.
    EnginePass() { ScanThread::ST_ThreadId = 0; }

    static void AwaitEnd(const ScanEngine& engine) {
        while (!engine.Finished()) {
            Ostrel::LB_delay(1);
        }
    }

    DumpOptions Options(const Asked& asked) {
        asked_ = asked;
        asked_.path = asked.path.empty() ? directory_.Path() : asked.path;
        asked_.device = asked.device.empty() ? device_ : asked.device;
        return {asked_.start,
                asked_.end,
                asked_.compress,
                asked_.device.c_str(),
                asked_.poolName.c_str(),
                asked_.path.c_str(),
                true};
    }

    /// Runs a pass to its end; its status.
    int Run(ScanEngine& engine, const Asked& asked = {}) {
        DumpOptions options = Options(asked);
        EXPECT_EQ(engine.RunDump(selector_, options), 0);
        AwaitEnd(engine);
        return engine.Result();
    }

    std::string FilePath(const ScanEngine& engine, int number, char letter = 'T') const {
        char name[32] = "";
        std::snprintf(name, sizeof name, "%c%02d%05d.ZSB", letter, engine.ThreadId(), number);
        return directory_.File(name);
    }

    std::uint64_t Count(std::string_view magic) {
        return selector_.BlockSelectGet(std::string(magic).append(8, '\0').data())->count;
    }

    TemporaryDirectory directory_;
    std::string device_ = directory_.File("device");
    CapturedLog log_;
    BlockSelector selector_;
    Asked asked_;
};

}  // namespace support
