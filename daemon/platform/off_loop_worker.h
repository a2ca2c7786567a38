// One thread beside the event loop for work that would hold the loop long: a
// large payload's parse, a large rule set's checks, a test over a large set,
// handing freed memory back to the system, handing a shared device over to
// the kernel and giving it back. Jobs run one after the other, in the order
// given; each result goes back to the loop, where the daemon's state lives,
// so a job must touch nothing but what it was given.
#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <utility>

namespace halvo::daemon {

class OffLoopWorker {
  public:
    explicit OffLoopWorker(boost::asio::io_context& loop) : loop_(loop) {}
    // Waits for the job under way; the jobs not started are dropped.
    ~OffLoopWorker() {
        pool_.stop();
        pool_.join();
    }
    OffLoopWorker(const OffLoopWorker&) = delete;
    OffLoopWorker& operator=(const OffLoopWorker&) = delete;

    // Runs `job()` (which must not throw) on the worker, then `done(result)`
    // on the loop; until then the loop counts it as work under way.
    template <typename Job, typename Done> void run(Job job, Done done) {
        boost::asio::post(pool_, [this, work = boost::asio::make_work_guard(loop_),
                                  job = std::move(job), done = std::move(done)]() mutable {
            boost::asio::post(loop_, [done = std::move(done), result = job()]() mutable {
                done(std::move(result));
            });
        });
    }

    // Runs `job()` on the worker, with nothing to report.
    template <typename Job> void post(Job job) { boost::asio::post(pool_, std::move(job)); }

    // Runs every job given so far, then returns; no job may be given after.
    // Their results still go to the loop.
    void finish() { pool_.join(); }

  private:
    boost::asio::io_context& loop_;
    boost::asio::thread_pool pool_{1};
};

} // namespace halvo::daemon
