#include <gtest/gtest.h>

#include <initializer_list>
#include <thread>

#include "util/common/signalMask.h"

namespace {

bool IsBlocked(int signal) {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, signal) == 1;
}

TEST(SignalsHeldOff, ComeNeitherToTheThreadNorToThoseThatItStarts) {
    const SignalsHeldOff held;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH, SIGUSR1}) {
        EXPECT_TRUE(IsBlocked(signal)) << signal;
    }
    bool inherited = false;
    std::thread([&] { inherited = IsBlocked(SIGTERM); }).join();
    EXPECT_TRUE(inherited);
}

TEST(SignalsHeldOff, StillEndAThreadThatGoesWrong) {
    const SignalsHeldOff held;
    for (const int signal : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP}) {
        EXPECT_FALSE(IsBlocked(signal)) << signal;
    }
}

TEST(SignalsHeldOff, LeavesTheMaskAsItWas) {
    sigset_t before;
    sigset_t added;
    sigemptyset(&added);
    sigaddset(&added, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &added, &before);
    { const SignalsHeldOff held; }
    EXPECT_TRUE(IsBlocked(SIGUSR2));
    EXPECT_FALSE(IsBlocked(SIGTERM));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace
