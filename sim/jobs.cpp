#include "sim/jobs.h"

#include <utility>

namespace sim {

std::string ResultFileName(const Job& job) {
    return (job.kind == JobKind::Verify ? "verify" : "rebuild") + std::to_string(job.key) + ".xml";
}

std::string ResultFileText(const Job& job, bool layout64) {
    return "<poolVerifyResult><userKey value=\"" + std::to_string(job.key) +
           "\"/><layout value=\"" + (layout64 ? "64" : "32") + "\"/><poolName>" + job.pool +
           "</poolName><state value=\"" + std::to_string(static_cast<int>(job.state)) +
           "\"/><finalStatus value=\"" + std::to_string(job.finalStatus) +
           "\"/></poolVerifyResult>\n";
}

std::uint64_t Jobs::Start(Job job) {
    const std::scoped_lock lock(mutex_);
    job.key = nextKey_++;
    const std::uint64_t key = job.key;
    jobs_.emplace(key, std::move(job));
    return key;
}

std::optional<Job> Jobs::Find(std::uint64_t key) const {
    const std::scoped_lock lock(mutex_);
    const auto found = jobs_.find(key);
    return found == jobs_.end() ? std::nullopt : std::optional<Job>(found->second);
}

std::vector<Job> Jobs::All() const {
    const std::scoped_lock lock(mutex_);
    std::vector<Job> all;
    for (const auto& entry : jobs_) {
        all.push_back(entry.second);
    }
    return all;
}

bool Jobs::Remove(std::uint64_t key) {
    const std::scoped_lock lock(mutex_);
    return jobs_.erase(key) > 0;
}

bool Jobs::Set(std::uint64_t key, const std::string& setting, const std::string& value) {
    const std::scoped_lock lock(mutex_);
    const auto found = jobs_.find(key);
    if (found != jobs_.end()) {
        found->second.settings[setting] = value;
    }
    return found != jobs_.end();
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): how, then by whom
bool Jobs::End(std::uint64_t key, JobState state, std::uint64_t finalStatus, std::uint64_t setter) {
    const std::scoped_lock lock(mutex_);
    const auto found = jobs_.find(key);
    if (found == jobs_.end() || found->second.state == JobState::Finished ||
        found->second.state == JobState::Cancelled) {
        return false;
    }
    found->second.state = state;
    found->second.finalStatus = finalStatus;
    found->second.finalStatusSetter = setter;
    return true;
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): named at every call
bool Jobs::Move(std::uint64_t key, JobState from, JobState to) {
    const std::scoped_lock lock(mutex_);
    const auto found = jobs_.find(key);
    if (found == jobs_.end() || found->second.state != from) {
        return false;
    }
    found->second.state = to;
    return true;
}

}  // namespace sim
