#pragma once

#include <iostream>
#include <streambuf>

namespace fuzz {

/// Takes what the code under test says of odd inputs, which would be much.
class Quiet : std::streambuf {
  public:
    Quiet() {
        std::cerr.rdbuf(this);
        std::cout.rdbuf(this);
    }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;
    ~Quiet() override = default;

    /// From here on, for the process's life.
    static void Please() {
        static Quiet* const quiet = new Quiet;  // NOLINT: the streams keep it to the last
        static_cast<void>(quiet);
    }

  private:
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char* /*text*/, std::streamsize length) override { return length; }
};

}  // namespace fuzz
