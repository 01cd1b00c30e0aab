// Puts the unit tests into the environment's locale for characters, where the tool is once its
// screen is there, and says which that is. A test in tests/runs runs those that parse in another.

#include <gtest/gtest.h>

#include <clocale>
#include <iostream>
#include <memory>

namespace {

class EnvironmentLocale : public testing::Environment {
  public:
    void SetUp() override {
        const char* taken = std::setlocale(LC_CTYPE, "");
        std::cout << "locale " << (taken != nullptr ? taken : "that is not there") << '\n';
    }
};

[[maybe_unused]] const testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(std::make_unique<EnvironmentLocale>().release());

}  // namespace
