#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "tests/support/capturedLog.h"
#include "tests/support/fileBytes.h"
#include "tests/support/openFiles.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/lbpMisc.h"

namespace {

std::string ThrownBy(const std::string& path, const char* mode) {
    try {
        const Handle_raii handle(path.c_str(), mode);
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
    return "nothing";
}

TEST(Handle, LogsAndThrowsWhenAFileCannotBeOpened) {
    const support::TemporaryDirectory directory;
    const std::string path = directory.File("missing");
    for (const char* mode : {"r", "rb", "r+"}) {
        const support::CapturedLog log;
        EXPECT_EQ(ThrownBy(path, mode), "Could not open file");
        EXPECT_EQ(log.Text(), "util/common/lbpMisc[68] Could not open \"" + path +
                                  "\" because of \"No such file or directory\"\n");
    }
}

TEST(Handle, LogsAndThrowsWhenAFileCannotBeCreated) {
    const support::TemporaryDirectory directory;
    for (const char* mode : {"w", "a", "wb"}) {
        const support::CapturedLog log;
        EXPECT_EQ(ThrownBy(directory.Path(), mode), "Could not open/create file");
        EXPECT_EQ(log.Text(), "util/common/lbpMisc[73] Could not open or create \"" +
                                  directory.Path() + "\" because of \"Is a directory\"\n");
    }
}

TEST(Handle, ClosesItsStreamWithItsScope) {
    const support::TemporaryDirectory directory;
    const std::string path = directory.File("file");
    {
        const Handle_raii handle(path.c_str(), "w");
        ASSERT_NE(handle.get(), nullptr);
        std::fputs("kept", handle.get());
        EXPECT_EQ(support::DescriptorsOf(path).size(), 1U);
    }
    EXPECT_EQ(support::DescriptorsOf(path).size(), 0U);
    EXPECT_EQ(support::ReadFile(path), "kept");
}

}  // namespace
