#include "util/zsbtool/setTables.h"

#include "util/common/utf8.h"

namespace zsbtool {

std::vector<TableLayout> TableLayouts(bool content) {
    std::vector<TableLayout> layouts = {{"sets",
                                         {{"path", "TEXT"},
                                          {"scan_id", "TEXT"},
                                          {"pool", "TEXT"},
                                          {"pool_blocks", "INTEGER"},
                                          {"created", "TEXT"},
                                          {"files", "INTEGER"},
                                          {"records", "INTEGER"},
                                          {"problems", "TEXT"}}},
                                        {"files",
                                         {{"file", "TEXT"},
                                          {"number", "INTEGER"},
                                          {"created", "TEXT"},
                                          {"closed", "TEXT"},
                                          {"flags", "TEXT"},
                                          {"compressed", "INTEGER"},
                                          {"bytes", "INTEGER"},
                                          {"records", "INTEGER"},
                                          {"crc", "INTEGER"},
                                          {"problems", "TEXT"}}},
                                        {"records",
                                         {{"block", "INTEGER"},
                                          {"type", "TEXT"},
                                          {"file", "TEXT"},
                                          {"index", "INTEGER"},
                                          {"crc32", "INTEGER"}}}};
    if (content) {
        layouts.back().columns.push_back({"content", "BLOB"});
    }
    return layouts;
}

std::string ValidUtf8(std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        const std::size_t length = FirstUtf8Character(text).length;
        valid += length == 0 ? "\xEF\xBF\xBD" : text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return valid;
}

}  // namespace zsbtool
