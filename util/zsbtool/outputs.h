#pragma once

#include <csignal>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "util/common/fileDescriptor.h"

namespace zsbtool {

/// Keeps what a command has half made, so that a signal that ends the program removes it first. The
/// signals SIGINT, SIGTERM and SIGHUP keep their effect until the first output is begun; those that
/// were ignored at the start stay ignored.
class Outputs {
  public:
    Outputs() = default;
    ~Outputs();
    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;

    /// Held while a temporary file or folder comes to be or gets its name: a signal waits
    /// meanwhile, and who comes behind the signal waits for the end of the process. The first call
    /// is made on the main thread while it is the only one.
    std::unique_lock<std::mutex> Hold();

    /// Removes what is half made, a file or a folder.
    void Discard(const std::string& path) noexcept;

    // Under `Hold`.

    void Add(const std::string& path) { halfMade_.insert(path); }
    void Forget(const std::string& path) { halfMade_.erase(path); }

  private:
    void Watch();
    [[noreturn]] void EndBy(int signal);

    std::mutex mutex_;
    std::set<std::string> halfMade_;
    sigset_t watched_{};
    FileDescriptor signals_;
    FileDescriptor stop_;
    std::thread watcher_;
};

/// A file that stands under its name only when it is whole: it is written under a temporary name in
/// the same folder, synced and renamed. Without `Commit` nothing remains of it. Throws `Failure`.
class OutputFile {
  public:
    /// A regular file of that name is replaced; anything else there, a device say, is refused.
    OutputFile(Outputs& outputs, const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Open for reading and writing.
    int Descriptor() const { return file_.Get(); }
    /// Where it stands until it is committed, for a library that opens files by their names.
    const std::string& TemporaryPath() const { return temporary_; }
    /// Writes all of it behind what was written so far.
    void Write(std::string_view bytes);
    void Commit();

  private:
    Outputs& outputs_;
    std::string path_;
    std::string temporary_;  // empty once committed
    FileDescriptor file_;
};

/// A folder of files that stand under its name only when all are whole. The folder is new, or is
/// there and empty. Without `Commit` nothing remains of it. Throws `Failure`.
class OutputFolder {
  public:
    OutputFolder(Outputs& outputs, const std::string& path);
    ~OutputFolder();
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

    /// Where the files are to be made; it ends in "/". Several threads may make theirs.
    std::string Path() const { return temporary_ + '/'; }
    /// Syncs every file and gives the folder, or in an existing one its files, their names: in
    /// descending order, so that the first file of a set comes last.
    void Commit();

  private:
    void MoveInto();

    Outputs& outputs_;
    std::string path_;
    bool existed_;
    std::string temporary_;
    bool committed_ = false;
};

}  // namespace zsbtool
