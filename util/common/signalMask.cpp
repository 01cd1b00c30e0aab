#include "util/common/signalMask.h"

#include <initializer_list>

SignalsHeldOff::SignalsHeldOff() {
    sigset_t held;
    sigfillset(&held);
    for (const int own : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP}) {
        sigdelset(&held, own);
    }
    pthread_sigmask(SIG_SETMASK, &held, &before_);
}

SignalsHeldOff::~SignalsHeldOff() {
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}
