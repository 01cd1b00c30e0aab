#include "util/zsbtool/messages.h"

#include <cstdio>
#include <string>

#include "util/zsbtool/settings.h"

namespace zsbtool {

void Complain(std::string_view text) {
    const std::string line = "zsbtool: " + std::string(text) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void Note(const Settings& settings, std::string_view text) {
    if (!settings.quiet) {
        Complain(text);
    }
}

}  // namespace zsbtool
