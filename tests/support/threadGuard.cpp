// ThreadSanitizer watches only the unit tests that have threads: those of the files in
// THREADED_TESTS. A test of another file that starts a thread fails, so that none is forgotten.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <string_view>

namespace {

std::atomic<bool> mayStartThreads = true;

bool IsThreaded(std::string_view file) {
    const std::string_view name = file.substr(file.rfind('/') + 1);
    const std::string_view threaded = THREADED_TESTS;
    const std::size_t found = threaded.find(name);
    return found != std::string_view::npos && (found == 0 || threaded[found - 1] == ' ');
}

class ThreadGuard : public testing::EmptyTestEventListener {
  public:
    void OnTestStart(const testing::TestInfo& test) override {
        mayStartThreads = IsThreaded(test.file());
    }
    void OnTestEnd(const testing::TestInfo& /*test*/) override { mayStartThreads = true; }
};

const bool guarded = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new ThreadGuard);
    return true;
}();

}  // namespace

// Stands before the library's function of this name, for every caller in the process.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument) {
    static const auto libraryCall =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    if (!mayStartThreads) {
        ADD_FAILURE()
            << "its file starts threads: name it in threaded_tests of tests/CMakeLists.txt";
    }
    return libraryCall(thread, attributes, start, argument);
}
