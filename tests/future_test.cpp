// tavik::Future: completion before and after continuations are registered, from several
// threads, chaining and errors.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tavik/core/future.h"

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
