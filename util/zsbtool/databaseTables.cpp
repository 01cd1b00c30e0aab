#include <sqlite3.h>

#include <cerrno>
#include <limits>

#include "util/zsbtool/failure.h"
#include "util/zsbtool/outputs.h"
#include "util/zsbtool/setTables.h"
#include "util/zsbtool/text.h"

// The one file that includes SQLite's header.

namespace zsbtool {

namespace {

/// A prepared statement.
class Statement {
  public:
    Statement(sqlite3* database, const std::string& sql) {
        sqlite3_prepare_v2(database, sql.c_str(), -1, &statement_, nullptr);
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void Bind(std::size_t index, const TableValue& value) {
        const auto place = static_cast<int>(index + 1);
        if (const auto* number = std::get_if<std::uint64_t>(&value)) {
            BindNumber(place, *number);
        } else if (const auto* text = std::get_if<std::string_view>(&value)) {
            sqlite3_bind_text64(statement_, place, text->data(), text->size(), SQLITE_STATIC,
                                SQLITE_UTF8);
        } else if (const auto* bytes = std::get_if<std::span<const unsigned char>>(&value)) {
            sqlite3_bind_blob64(statement_, place, bytes->data(), bytes->size(), SQLITE_STATIC);
        } else {
            sqlite3_bind_null(statement_, place);
        }
    }

    /// Whether the row was taken.
    bool Run() {
        const bool done = sqlite3_step(statement_) == SQLITE_DONE;
        return sqlite3_reset(statement_) == SQLITE_OK && done;
    }

  private:
    /// The engine's integers have a sign; greater numbers stand in damaged sets alone.
    void BindNumber(int place, std::uint64_t number) {
        constexpr std::uint64_t kMost = std::numeric_limits<sqlite3_int64>::max();
        if (number <= kMost) {
            sqlite3_bind_int64(statement_, place, static_cast<sqlite3_int64>(number));
        } else {
            sqlite3_bind_double(statement_, place, static_cast<double>(number));
        }
    }

    sqlite3_stmt* statement_ = nullptr;
};

struct DatabaseCloser {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
};

/// `"index"` is a word of SQL, so every name is quoted.
std::string Quoted(const char* name) {
    return '"' + std::string(name) + '"';
}

class Database final : public TableWriter {
  public:
    Database(Outputs& outputs, const std::string& path, const std::vector<TableLayout>& layouts)
        : path_(path), file_(outputs, path) {
        sqlite3* opened = nullptr;
        const int status = sqlite3_open(file_.TemporaryPath().c_str(), &opened);
        database_.reset(opened);
        Require(status == SQLITE_OK);
        // A database that is broken off has no name yet, so nothing need be taken back.
        Execute("PRAGMA journal_mode=OFF");
        Execute("PRAGMA synchronous=OFF");
        Execute("PRAGMA locking_mode=EXCLUSIVE");
        Execute("BEGIN");
        for (const TableLayout& layout : layouts) {
            Create(layout);
        }
    }

    void Row(SetTable table, std::span<const TableValue> values) override {
        Statement& statement = *inserts_[static_cast<std::size_t>(table)];
        for (std::size_t i = 0; i < values.size(); ++i) {
            statement.Bind(i, values[i]);
        }
        Require(statement.Run());
    }

    void Commit() override {
        Execute("CREATE INDEX records_by_block ON records (block)");
        Execute("COMMIT");
        inserts_.clear();
        Require(sqlite3_close(database_.get()) == SQLITE_OK);
        static_cast<void>(database_.release());  // it is closed
        file_.Commit();
    }

  private:
    void Create(const TableLayout& layout) {
        std::string columns;
        std::string places;
        for (const ColumnLayout& column : layout.columns) {
            columns += (columns.empty() ? "" : ", ") + Quoted(column.name) + ' ' + column.type;
            places += places.empty() ? "?" : ", ?";
        }
        Execute("CREATE TABLE " + Quoted(layout.name) + " (" + columns + ")");
        inserts_.push_back(std::make_unique<Statement>(
            database_.get(), "INSERT INTO " + Quoted(layout.name) + " VALUES (" + places + ")"));
    }

    void Execute(const std::string& sql) {
        Require(sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK);
    }

    void Require(bool good) {
        if (good) {
            return;
        }
        const int error = sqlite3_system_errno(database_.get());
        switch (sqlite3_errcode(database_.get())) {
            case SQLITE_FULL:
                throw Failure(Printable(path_), ENOSPC);
            case SQLITE_IOERR:
                throw Failure(Printable(path_), error != 0 ? error : EIO);
            default:
                throw Failure(Printable(path_) + ": " + sqlite3_errmsg(database_.get()));
        }
    }

    const std::string path_;
    OutputFile file_;
    std::unique_ptr<sqlite3, DatabaseCloser> database_;
    std::vector<std::unique_ptr<Statement>> inserts_;  // end before the database does
};

}  // namespace

std::unique_ptr<TableWriter> MakeDatabase(Outputs& outputs, const std::string& path,
                                          const std::vector<TableLayout>& layouts) {
    return std::make_unique<Database>(outputs, path, layouts);
}

}  // namespace zsbtool
