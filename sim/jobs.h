#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// What a job does to its pool.
enum class JobKind { Verify, Rebuild };

/// The state that a job's details report.
enum class JobState { Running = 1, Paused = 2, Finished = 3, Cancelled = 4 };

/// A verify or rebuild job of a pool.
struct Job {
    std::uint64_t key = 0;  ///< given by `Jobs::Start`, never 0
    JobKind kind = JobKind::Verify;
    std::string pool;  ///< its name
    JobState state = JobState::Running;
    std::uint64_t status = 0;                       ///< while it runs
    std::uint64_t finalStatus = 0;                  ///< when it has ended
    std::uint64_t finalStatusSetter = 0;            ///< what set that
    std::map<std::string, std::string> settings{};  ///< as the requests gave them
};

/// The job's result file, as it stands in the name space.
std::string ResultFileName(const Job& job);

/// The content of the result file in the 64-bit or the older layout.
std::string ResultFileText(const Job& job, bool layout64);

/// The jobs. Any thread may call it.
class Jobs {
  public:
    /// Adds a job and gives it its key.
    std::uint64_t Start(Job job);

    std::optional<Job> Find(std::uint64_t key) const;

    /// All jobs, those that have ended too, oldest first.
    std::vector<Job> All() const;

    // Those that follow give false when there is no such job.

    bool Remove(std::uint64_t key);

    /// Keeps a setting as a request gave it.
    bool Set(std::uint64_t key, const std::string& setting, const std::string& value);

    // Between running and paused; false also for a job in another state.
    bool Pause(std::uint64_t key) { return Move(key, JobState::Running, JobState::Paused); }
    bool Resume(std::uint64_t key) { return Move(key, JobState::Paused, JobState::Running); }

    /// Ends a job that runs or is paused; false for any other.
    bool End(std::uint64_t key, JobState state, std::uint64_t finalStatus, std::uint64_t setter);

  private:
    bool Move(std::uint64_t key, JobState from, JobState to);

    mutable std::mutex mutex_;
    std::map<std::uint64_t, Job> jobs_;
    std::uint64_t nextKey_ = 1;
};

}  // namespace sim
