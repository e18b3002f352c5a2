#include "tavik/core/future.h"

#include <pthread.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <thread>

#include "core/exit_deadline.h"

namespace tavik::detail {

namespace {
thread_local bool tlsTransportThread = false;
thread_local bool tlsBackgroundThread = false;
}  // namespace

void markTransportThread() {
  tlsTransportThread = true;
}
bool onTransportThread() {
  return tlsTransportThread;
}
bool onBackgroundThread() {
  return tlsBackgroundThread;
}

void fatalError(const char* message) {
  std::fprintf(stderr, "tavik/TAVIK: Fatal error: %s\n", message);
  std::fflush(stderr);
  std::abort();
}

void throwNoState(const char* operation) {
  throw InvalidFutureError(std::string("tavik::Future::") + operation +
                           " called on a future that has no operation (default-constructed)");
}

namespace {

std::atomic<long long> exitDeadlineMs{1000};

// One thread that runs posted tasks in order. Started on the first task; stopped at
// exit, waiting a bounded time for a task that is still running.
class BackgroundThread {
 public:
  void post(std::function<void()> task) {
    {
      std::lock_guard lock(mutex_);
      if (stopping_) return;  // exiting: the task is dropped and its future abandoned
      tasks_.push_back(std::move(task));
      if (!started_) {
        started_ = true;
        thread_ = std::thread([this] { run(); });
      }
    }
    wake_.notify_one();
  }

  // Stops the thread. Tasks not started yet are dropped; a task still running is waited
  // for at most `deadline`, then left behind (the thread ends when it returns).
  void shutdown(std::chrono::milliseconds deadline) {
    std::deque<std::function<void()>> dropped;
    {
      std::unique_lock lock(mutex_);
      if (stopping_) return;
      stopping_ = true;
      dropped.swap(tasks_);
    }
    wake_.notify_all();
    dropped.clear();
    if (!thread_.joinable()) return;
    if (thread_.get_id() == std::this_thread::get_id()) {
      thread_.detach();  // exit() called from a task: the loop ends when it returns
      return;
    }
    std::unique_lock lock(mutex_);
    if (finished_.wait_for(lock, deadline, [&] { return done_; })) {
      lock.unlock();
      thread_.join();
    } else {
      lock.unlock();
      thread_.detach();
    }
  }

  std::mutex& mutex() { return mutex_; }

 private:
  void run() {
    tlsBackgroundThread = true;
    std::unique_lock lock(mutex_);
    while (true) {
      wake_.wait(lock, [&] { return stopping_ || !tasks_.empty(); });
      if (stopping_) break;
      std::function<void()> task = std::move(tasks_.front());
      tasks_.pop_front();
      lock.unlock();
      task();
      task = nullptr;
      lock.lock();
    }
    done_ = true;
    finished_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable finished_;
  std::deque<std::function<void()>> tasks_;
  bool started_ = false;
  bool stopping_ = false;
  bool done_ = false;
  std::thread thread_;
};

// The instance of this process. A child made by fork() gets a new one on first use: the
// parent's thread does not exist there, and its queue belongs to the parent.
std::atomic<BackgroundThread*> current{nullptr};
std::mutex creation;

void prepareFork() {
  creation.lock();
  if (auto* thread = current.load()) thread->mutex().lock();
}
void parentAfterFork() {
  if (auto* thread = current.load()) thread->mutex().unlock();
  creation.unlock();
}
void childAfterFork() {
  if (auto* thread = current.load()) thread->mutex().unlock();
  current.store(nullptr);  // the parent's instance is left as it is, never used again
  creation.unlock();
}

BackgroundThread& background() {
  if (auto* thread = current.load(std::memory_order_acquire)) return *thread;
  static struct Once {
    Once() { ::pthread_atfork(prepareFork, parentAfterFork, childAfterFork); }
  } once;
  // Stops whichever instance is current when the process exits.
  static struct Guard {
    ~Guard() {
      if (auto* thread = current.load()) {
        thread->shutdown(std::chrono::milliseconds(exitDeadlineMs.load()));
      }
    }
  } guard;
  std::lock_guard lock(creation);
  if (auto* thread = current.load()) return *thread;
  auto* thread = new BackgroundThread();  // never destroyed, like the HTTP client
  current.store(thread, std::memory_order_release);
  return *thread;
}

}  // namespace

void setExitDeadline(std::chrono::milliseconds deadline) {
  exitDeadlineMs.store(deadline.count());
}

std::chrono::milliseconds exitDeadline() {
  return std::chrono::milliseconds(exitDeadlineMs.load());
}

}  // namespace tavik::detail

namespace tavik {

Executor backgroundExecutor() {
  return [](std::function<void()> task) { detail::background().post(std::move(task)); };
}

}  // namespace tavik
