#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zsbtool {

/// The tables that a set is exported to, in the order of `TableLayouts`.
enum class SetTable : std::size_t { kSets, kFiles, kRecords };

struct ColumnLayout {
    const char* name;
    const char* type;  ///< as SQL says it
};

struct TableLayout {
    const char* name;
    std::vector<ColumnLayout> columns;
};

/// What the tables look like, with the bytes of the blocks or without.
std::vector<TableLayout> TableLayouts(bool content);

/// One cell: nothing, a number, a text in UTF-8, or bytes.
using TableValue =
    std::variant<std::monostate, std::uint64_t, std::string_view, std::span<const unsigned char>>;

/// Where rows go. Used by one thread at a time. What cannot be written is thrown as `Failure`.
class TableWriter {
  public:
    virtual ~TableWriter() = default;
    TableWriter() = default;
    TableWriter(const TableWriter&) = delete;
    TableWriter& operator=(const TableWriter&) = delete;

    /// `values` are as many as the table has columns.
    virtual void Row(SetTable table, std::span<const TableValue> values) = 0;
    /// Makes the tables complete under their name. Nothing remains of them without.
    virtual void Commit() = 0;
};

class Outputs;

/// Tables in one SQLite database.
std::unique_ptr<TableWriter> MakeDatabase(Outputs& outputs, const std::string& path,
                                          const std::vector<TableLayout>& layouts);

/// Tables in a folder of files of comma-separated values; bytes are hexadecimal there.
std::unique_ptr<TableWriter> MakeCsvFolder(Outputs& outputs, const std::string& path,
                                           const std::vector<TableLayout>& layouts);

/// The text with U+FFFD for bytes that are no UTF-8.
std::string ValidUtf8(std::string_view text);

}  // namespace zsbtool
