#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace sim {

enum class JobKind { Verify, Rebuild };

/// The state that a job's details report.
enum class JobState { Running = 1, Paused = 2, Finished = 3, Cancelled = 4 };

/// A verify or rebuild job of a pool.
struct Job {
    std::uint64_t key = 0;
    JobKind kind = JobKind::Verify;
    std::string pool;
    JobState state = JobState::Running;
    std::uint64_t status = 0;
    std::uint64_t finalStatus = 0;
    std::uint64_t finalStatusSetter = 0;
    std::map<std::string, std::string> settings{};  ///< as the requests gave them
};

/// The job's result file, as it stands in the name space.
std::string ResultFileName(const Job& job);

/// The content of the result file in the 64-bit or the older layout.
std::string ResultFileText(const Job& job, bool layout64);

/// The jobs. Any thread may call it.
class Jobs {
  public:
    std::uint64_t Start(Job job);
    std::optional<Job> Find(std::uint64_t key) const;
    std::vector<Job> All() const;
    bool Remove(std::uint64_t key);
    bool Set(std::uint64_t key, const std::string& setting, const std::string& value);

    /// From one state to another; false when there is no such job or it is in neither state.
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
