#pragma once

#include <csignal>

/// While it lives, the calling thread takes no signals but those that its own mistakes raise. A
/// thread that it starts meanwhile never takes any: they are the operator thread's matter.
class SignalsHeldOff {
  public:
    SignalsHeldOff();
    ~SignalsHeldOff();
    SignalsHeldOff(const SignalsHeldOff&) = delete;
    SignalsHeldOff& operator=(const SignalsHeldOff&) = delete;

  private:
    sigset_t before_{};
};
