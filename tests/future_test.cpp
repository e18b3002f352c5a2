// tavik::Future: completion before and after continuations are registered, from several
// threads, chaining and errors, executors, cancellation, and futures without a state.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "tavik/core/future.h"
#include "tavik/core/log.h"

using namespace tavik;
using namespace std::chrono_literals;

TEST(Future, ContinuationsRunOnceWhetherRegisteredBeforeOrAfterCompletion) {
  Promise<int> promise;
  auto future = promise.get_future();
  std::atomic<int> calls{0};
  std::atomic<int> sum{0};
  future.then([&](int v) {
    ++calls;
    sum += v;
  });
  EXPECT_EQ(future.wait_for(10ms), std::future_status::timeout);
  EXPECT_FALSE(future.is_ready());
  EXPECT_TRUE(promise.set_value(4));
  EXPECT_FALSE(promise.set_value(5));  // the first result wins
  future.then([&](int v) {
    ++calls;
    sum += v;
  });  // runs at once
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(sum, 8);
  EXPECT_EQ(future.get(), 4);
  EXPECT_EQ(future.wait_for(0ms), std::future_status::ready);
}

TEST(Future, ChainsValuesFuturesAndErrors) {
  Promise<int> first;
  Promise<std::string> second;
  auto chained = first.get_future().then([](int v) { return v * 2; }).then([&](int v) {
    return second.get_future().then([v](const std::string& s) { return s + std::to_string(v); });
  });
  first.set_value(21);
  EXPECT_FALSE(chained.is_ready());
  second.set_value("answer=");
  EXPECT_EQ(chained.get(), "answer=42");

  Promise<int> failing;
  bool ran = false;
  auto skipped = failing.get_future().then([&](int) {
    ran = true;
    return 1;
  });
  failing.set_exception(std::make_exception_ptr(std::runtime_error("boom")));
  EXPECT_FALSE(ran);
  EXPECT_THROW(skipped.get(), std::runtime_error);
  auto recovered = skipped.whenReady([](const Future<int>& f) {
    try {
      return f.get();
    } catch (const std::exception&) {
      return -1;
    }
  });
  EXPECT_EQ(recovered.get(), -1);
  auto thrown = Future<int>::ready(1).then([](int) -> int { throw std::logic_error("in f"); });
  EXPECT_THROW(thrown.get(), std::logic_error);
}

TEST(Future, ManyThreadsRegisterWhileAnotherCompletes) {
  for (int round = 0; round < 50; ++round) {
    Promise<int> promise;
    auto future = promise.get_future();
    std::atomic<int> calls{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 20; ++i) future.then([&](int) { ++calls; });
      });
    }
    std::thread completer([&] { promise.set_value(round); });
    for (auto& t : threads) t.join();
    completer.join();
    EXPECT_EQ(calls, 160);
    EXPECT_EQ(future.get(), round);
  }
}

TEST(Future, AbandonedPromiseWakesWaitersWithoutRunningContinuations) {
  bool ran = false;
  Future<int> future;
  {
    Promise<int> promise;
    future = promise.get_future();
    future.then([&](int) { ran = true; });
  }
  EXPECT_TRUE(future.is_ready());
  EXPECT_THROW(future.get(), AbandonedError);
  EXPECT_FALSE(ran);
}

namespace {

// An executor that keeps its tasks until the test runs them.
struct ManualExecutor {
  std::mutex mutex;
  std::vector<std::function<void()>> tasks;

  Executor executor() {
    return [this](std::function<void()> task) {
      std::lock_guard lock(mutex);
      tasks.push_back(std::move(task));
    };
  }
  std::size_t runAll() {
    std::vector<std::function<void()>> now;
    {
      std::lock_guard lock(mutex);
      now.swap(tasks);
    }
    for (auto& task : now) task();
    return now.size();
  }
};

}  // namespace

TEST(Future, ADefaultConstructedFutureSaysItHasNoOperation) {
  const Future<int> none;
  EXPECT_FALSE(none.valid());
  EXPECT_THROW(none.get(), InvalidFutureError);
  EXPECT_THROW(none.is_ready(), InvalidFutureError);
  EXPECT_THROW(none.wait_for(1ms), InvalidFutureError);
  EXPECT_THROW(none.then([](int) { return 1; }), InvalidFutureError);
  EXPECT_THROW(none.whenReady([](const Future<int>&) {}), InvalidFutureError);
  EXPECT_THROW(none.cancel(), InvalidFutureError);
  try {
    none.get();
  } catch (const InvalidFutureError& e) {
    EXPECT_NE(std::string(e.what()).find("get"), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("default-constructed"), std::string::npos) << e.what();
  }
  // A continuation returning an empty future fails its own future, not the process.
  auto unwrapped = Future<int>::ready(1).then([](int) { return Future<int>(); });
  EXPECT_THROW(unwrapped.get(), InvalidFutureError);
}

TEST(Future, ContinuationsOnAnExecutorRunThereAndSoDoesWhatFollows) {
  ManualExecutor executor;
  Promise<int> promise;
  std::thread::id ranOn;
  std::thread::id followedOn;
  auto doubled = promise.get_future().then(executor.executor(), [&](int v) {
    ranOn = std::this_thread::get_id();
    return v * 2;
  });
  auto followed = doubled.then([&](int v) {
    followedOn = std::this_thread::get_id();
    return v + 1;
  });
  std::thread completer([&] { promise.set_value(20); });
  completer.join();
  EXPECT_FALSE(doubled.is_ready()) << "the continuation ran on the completing thread";
  EXPECT_EQ(executor.runAll(), 1u);
  EXPECT_EQ(ranOn, std::this_thread::get_id());
  EXPECT_EQ(followedOn, std::this_thread::get_id());
  EXPECT_EQ(followed.get(), 41);

  // Already complete: still posted, never run inline.
  bool ran = false;
  auto later = Future<int>::ready(1).then(executor.executor(), [&](int v) {
    ran = true;
    return v;
  });
  EXPECT_FALSE(ran);
  executor.runAll();
  EXPECT_EQ(later.get(), 1);

  // Errors travel through the executor too, skipping f; whenReady sees them.
  auto failed = Future<int>::failed(std::make_exception_ptr(std::runtime_error("x")));
  auto skipped = failed.then(executor.executor(), [&](int) { return 0; });
  auto seen = failed.whenReady(executor.executor(), [](const Future<int>& f) {
    try {
      f.get();
      return std::string("value");
    } catch (const std::exception& e) {
      return std::string(e.what());
    }
  });
  EXPECT_FALSE(skipped.is_ready());
  executor.runAll();
  EXPECT_THROW(skipped.get(), std::runtime_error);
  EXPECT_EQ(seen.get(), "x");

  // An executor that drops its task abandons the continuation's future.
  auto dropped = Future<int>::ready(1).then([](std::function<void()>) {}, [](int v) { return v; });
  EXPECT_THROW(dropped.get(), AbandonedError);
}

TEST(Future, TheBackgroundExecutorRunsTasksOnTheSdkBackgroundThread) {
  auto result = Future<int>::ready(2).then(backgroundExecutor(), [](int v) {
    return std::make_pair(v * 3, detail::onBackgroundThread());
  });
  ASSERT_EQ(result.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(result.get().first, 6);
  EXPECT_TRUE(result.get().second);
  EXPECT_FALSE(detail::onBackgroundThread());
}

TEST(Future, CancelIsPassedUpAChainOnceAndOnlyBeforeTheResult) {
  Promise<int> source;
  std::atomic<int> hooks{0};
  source.get_future().onCancel([&] { ++hooks; });
  Promise<std::string> inner;
  auto chained = source.get_future().then([](int v) { return v + 1; }).then([&](int) {
    return inner.get_future();
  });
  EXPECT_TRUE(chained.cancel());
  EXPECT_FALSE(chained.cancel());
  EXPECT_EQ(hooks, 1);
  EXPECT_TRUE(chained.cancelRequested());
  EXPECT_TRUE(source.get_future().cancelRequested());
  // Cancel only asks: the result still comes from the producer.
  EXPECT_FALSE(chained.is_ready());
  source.set_value(1);

  // Once a continuation returned its future, cancel reaches that one as well.
  std::atomic<int> innerHooks{0};
  inner.get_future().onCancel([&] { ++innerHooks; });
  Promise<int> second;
  auto unwrapped = second.get_future().then([&](int) { return inner.get_future(); });
  second.set_value(0);
  EXPECT_TRUE(unwrapped.cancel());
  EXPECT_EQ(innerHooks, 1);
  inner.set_value("done");
  EXPECT_EQ(unwrapped.get(), "done");
  EXPECT_EQ(chained.get(), "done");

  // Nothing to cancel once the result is there; a hook added later never runs.
  bool late = false;
  unwrapped.onCancel([&] { late = true; });
  EXPECT_FALSE(unwrapped.cancel());
  EXPECT_FALSE(late);

  // A detached future keeps cancel() to itself.
  Promise<int> kept;
  bool reached = false;
  kept.get_future().onCancel([&] { reached = true; });
  auto detached = kept.get_future().detached();
  EXPECT_TRUE(detached.cancel());
  EXPECT_FALSE(reached);
  kept.set_value(5);
  EXPECT_EQ(detached.get(), 5);
}
