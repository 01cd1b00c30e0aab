#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "util/common/fileDescriptor.h"
#include "util/ostrelscan/blockSelector.h"
#include "util/ostrelscan/scanUI.h"
#include "util/ostrelscan/screenInterface.h"
#include "util/ostrelscan/screenLayout.h"

namespace {

/// A terminal of 80 columns and 25 rows in the place of the standard streams, whose bytes are
/// counted and thrown away.
class StandInTerminal {
  public:
    StandInTerminal()
        : kept_{FileDescriptor(dup(STDIN_FILENO)), FileDescriptor(dup(STDOUT_FILENO))} {
        winsize size{25, 80, 0, 0};
        int outside = -1;
        int inside = -1;
        if (openpty(&outside, &inside, nullptr, nullptr, &size) != 0) {
            throw std::runtime_error("no pseudo-terminal");
        }
        outside_ = FileDescriptor(outside);
        const FileDescriptor end(inside);
        dup2(inside, STDIN_FILENO);
        dup2(inside, STDOUT_FILENO);
        setenv("TERM", "xterm-256color", 1);
        reader_ = std::thread([this] { Drain(); });
    }
    ~StandInTerminal() {
        dup2(kept_[0].Get(), STDIN_FILENO);
        dup2(kept_[1].Get(), STDOUT_FILENO);
        reader_.join();  // nobody has the inside any more
    }
    StandInTerminal(const StandInTerminal&) = delete;
    StandInTerminal& operator=(const StandInTerminal&) = delete;

  private:
    void Drain() const {
        std::array<char, 4096> bytes{};
        while (read(outside_.Get(), bytes.data(), bytes.size()) > 0) {
        }
    }

    std::array<FileDescriptor, 2> kept_;
    FileDescriptor outside_;
    std::thread reader_;
};

/// What the dialogue paints ten times a second, each number another one than before.
void Paint(ScreenInterface& screen, BlockSelector& selector, unsigned long long turn) {
    BS_Key key(0);
    int index = 0;
    while (const BlockSelect_s* type = selector.Enumerate(&key)) {
        int row = 0;
        int column = 0;
        UserInterface::GetAbsoluteSBLocation(&selector, index++, &row, &column);
        screen.PositionOutputCursor(row, column);
        screen.OutputToScreenWithAttribute(kLookSelected, SCAN_ColumnFormat, type->name,
                                           static_cast<long long>(turn));
    }
    screen.Redraw();
    screen.PositionOutputCursor(kProgressRow, 0);
    screen.OutputToScreenWithAttribute(kLookProgress, "Blk %llu", turn);
}

void Repaint(benchmark::State& state) {
    const StandInTerminal terminal;
    ScreenInterface screen;
    BlockSelector selector;
    unsigned long long turn = 0;
    for ([[maybe_unused]] auto _ : state) {
        ++turn;
        screen.AtOnce([&] { Paint(screen, selector, turn); });
    }
}
BENCHMARK(Repaint);

}  // namespace
