#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

/// Pieces of work that do not depend on each other, done by several threads, whose results are
/// taken one by one in the order of the pieces: what is taken does not depend on how many threads
/// there are. At most two pieces for each thread are finished and not taken, so that memory stays
/// flat.
///
/// `work(i)` makes the result of piece i, on any thread; `take(i, result)` is called on the
/// caller's thread. What either throws ends the whole, and is thrown to the caller as it would be
/// if the pieces were done one after the other.
template <class Result>
class OrderedWork {
  public:
    template <class Work, class Take>
    static void Run(std::size_t count, unsigned jobs, const Work& work, const Take& take) {
        if (jobs <= 1 || count <= 1) {
            for (std::size_t i = 0; i < count; ++i) {
                take(i, work(i));
            }
            return;
        }
        OrderedWork state(count, jobs);
        state.Start(std::min<std::size_t>(jobs, count), work);
        for (std::size_t i = 0; i < count; ++i) {
            take(i, state.Await(i));
        }
    }

  private:
    struct Slot {
        std::optional<Result> result;
        std::exception_ptr failure;
        bool ready = false;
    };

    OrderedWork(std::size_t count, unsigned jobs) : count_(count), slots_(2 * std::size_t{jobs}) {}

    ~OrderedWork() {
        {
            const std::lock_guard lock(mutex_);
            next_ = count_;
        }
        changed_.notify_all();
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }

    template <class Work>
    void Start(std::size_t wanted, const Work& work) {
        threads_.reserve(wanted);
        for (std::size_t i = 0; i < wanted; ++i) {
            try {
                threads_.emplace_back([this, &work] { Serve(work); });
            } catch (const std::system_error&) {
                if (threads_.empty()) {
                    throw;
                }
                return;  // fewer do as well
            }
        }
    }

    template <class Work>
    void Serve(const Work& work) {
        std::unique_lock lock(mutex_);
        while (true) {
            changed_.wait(lock,
                          [this] { return next_ >= count_ || next_ < taken_ + slots_.size(); });
            if (next_ >= count_) {
                return;
            }
            const std::size_t piece = next_++;
            lock.unlock();
            Slot done;
            try {
                done.result.emplace(work(piece));
            } catch (...) {
                done.failure = std::current_exception();
            }
            done.ready = true;
            lock.lock();
            slots_[piece % slots_.size()] = std::move(done);
            changed_.notify_all();
        }
    }

    Result Await(std::size_t piece) {
        Slot done;
        {
            std::unique_lock lock(mutex_);
            Slot& slot = slots_[piece % slots_.size()];
            changed_.wait(lock, [&slot] { return slot.ready; });
            std::swap(done, slot);
            taken_ = piece + 1;
        }
        changed_.notify_all();
        if (done.failure) {
            std::rethrow_exception(done.failure);
        }
        return std::move(*done.result);
    }

    const std::size_t count_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t next_ = 0;   // the first piece that nobody works on
    std::size_t taken_ = 0;  // how many results were taken
    std::vector<Slot> slots_;
    std::vector<std::thread> threads_;
};
