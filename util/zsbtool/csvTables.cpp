#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "util/common/fileDescriptor.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/outputs.h"
#include "util/zsbtool/setTables.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

constexpr std::size_t kKeptOfTable = 262'144;  // goes to the system at once

/// A text as one value: in quotes where it holds what parts values.
void AppendText(std::string& line, std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
        line += text;
        return;
    }
    line += '"';
    for (const char character : text) {
        line += character == '"' ? "\"\"" : std::string_view(&character, 1);
    }
    line += '"';
}

void AppendHex(std::string& line, std::span<const unsigned char> bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    for (const unsigned char byte : bytes) {
        line += kDigits[byte >> 4];
        line += kDigits[byte & 0xF];
    }
}

void AppendValue(std::string& line, const TableValue& value) {
    if (const auto* number = std::get_if<std::uint64_t>(&value)) {
        line += std::to_string(*number);
    } else if (const auto* text = std::get_if<std::string_view>(&value)) {
        AppendText(line, *text);
    } else if (const auto* bytes = std::get_if<std::span<const unsigned char>>(&value)) {
        AppendHex(line, *bytes);
    }
}

/// One table, with the names of its columns as the first line.
class CsvFile {
  public:
    CsvFile(FileDescriptor file, std::string shown, const TableLayout& layout)
        : file_(std::move(file)), shown_(std::move(shown)) {
        std::vector<TableValue> names;
        for (const ColumnLayout& column : layout.columns) {
            names.emplace_back(std::string_view(column.name));
        }
        Row(names);
    }

    void Row(std::span<const TableValue> values) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            kept_ += i == 0 ? "" : ",";
            AppendValue(kept_, values[i]);
        }
        kept_ += "\r\n";
        if (kept_.size() >= kKeptOfTable) {
            Flush();
        }
    }

    void Flush() {
        for (std::string_view left = kept_; !left.empty();) {
            const ssize_t count = write(file_.Get(), left.data(), left.size());
            if (count < 0 && errno != EINTR) {
                throw Failure(Printable(shown_), errno);
            }
            left.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
        }
        kept_.clear();
    }

  private:
    FileDescriptor file_;
    std::string shown_;
    std::string kept_;
};

class CsvFolder final : public TableWriter {
  public:
    CsvFolder(Outputs& outputs, const std::string& path, const std::vector<TableLayout>& layouts)
        : folder_(outputs, path) {
        for (const TableLayout& layout : layouts) {
            const std::string name = folder_.Path() + layout.name + ".csv";
            FileDescriptor file(open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
            if (!file.IsOpen()) {
                throw Failure(Printable(path), errno);
            }
            files_.emplace_back(std::move(file), path, layout);
        }
    }

    void Row(SetTable table, std::span<const TableValue> values) override {
        files_[static_cast<std::size_t>(table)].Row(values);
    }

    void Commit() override {
        for (CsvFile& file : files_) {
            file.Flush();
        }
        folder_.Commit();
    }

  private:
    OutputFolder folder_;
    std::vector<CsvFile> files_;
};

}  // namespace

std::unique_ptr<TableWriter> MakeCsvFolder(Outputs& outputs, const std::string& path,
                                           const std::vector<TableLayout>& layouts) {
    return std::make_unique<CsvFolder>(outputs, path, layouts);
}

}  // namespace zsbtool
