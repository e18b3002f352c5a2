#pragma once

#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace tavik {

template <class T>
class Future;
template <class T>
class Promise;

namespace detail {
/// For the SDK's own chains: the value of a ready future that nothing else reads (the
/// future was made for this one consumer), moved out instead of copied; its error is
/// rethrown.
template <class T>
T takeReadyValue(const Future<T>& future);
}  // namespace detail

/// Where a continuation runs: it receives a task and runs it once, later, on a thread of
/// its choosing (a UI event loop, a thread pool, a strand). An executor that drops a task
/// instead abandons the future of that continuation (`AbandonedError`).
using Executor = std::function<void(std::function<void()> task)>;

/// The SDK's own background thread, which runs one task at a time in order. The SDK
/// parses large answers there instead of on its transport thread; a host may post its
/// own slow continuations to it (`future.then(tavik::backgroundExecutor(), f)`), though
/// a slow task delays those answers as well.
Executor backgroundExecutor();

/// Thrown by `Future::get()` when the operation was abandoned (for example by the HTTP
/// client shutting down at process exit) and will never complete.
class AbandonedError : public std::runtime_error {
 public:
  AbandonedError() : std::runtime_error("the operation was abandoned and will not complete") {}
};

/// Thrown by every member but `valid()` of a default-constructed `Future`, which has no
/// operation behind it.
class InvalidFutureError : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

namespace detail {

[[noreturn]] void throwNoState(const char* operation);

/// True on the SDK's transport thread.
bool onTransportThread();
/// True on the SDK's background thread (`backgroundExecutor()`).
bool onBackgroundThread();
[[noreturn]] void fatalError(const char* message);

template <class T>
struct SharedState {
  std::mutex mutex;
  std::condition_variable ready_cv;
  bool ready = false;
  bool cancelRequested = false;
  std::optional<T> value;
  std::exception_ptr error;
  std::vector<std::function<void()>> callbacks;
  // What `cancel()` runs: the producer's way of stopping, and the links to the futures a
  // continuation depends on. Dropped, unrun, once the result is there.
  std::vector<std::function<void()>> cancelHooks;
};

template <class T>
struct IsFuture : std::false_type {};
template <class T>
struct IsFuture<Future<T>> : std::true_type {
  using value_type = T;
};

}  // namespace detail

/// The result of an asynchronous SDK operation. Copies share one result.
///
/// - `get()` blocks until the result is there and returns it (or rethrows the error an
///   internal operation completed with). Never call it on the transport thread, that is
///   from inside a plain continuation: it would wait for itself. The SDK stops the process
///   with a message instead of hanging.
/// - `wait_for(d)` waits at most `d` and tells whether the result is there.
/// - `then(f)` runs `f(value)` once the result is there: at once on the calling thread
///   if it already is, otherwise on the SDK thread that completes it (the transport
///   thread, or the background thread for an answer large enough to be parsed there).
///   It returns a future of what `f` returns; a future returned by `f` is unwrapped. An
///   error skips `f` and passes on. Every transfer of the process waits while a plain
///   continuation runs, so keep it to a few microseconds and never block in it.
/// - `then(executor, f)` is the same, but `f` runs as a task posted to `executor`, and
///   the returned future completes there too (so continuations chained on it with plain
///   `then` run there as well). Use it for anything slower than a hand-over.
/// - `whenReady(f)` and `whenReady(executor, f)` are `then` for code that also wants to
///   see errors: `f` receives the ready future and may call `get()` on it.
/// - `cancel()` asks the operation behind the future to stop; see there.
///
/// A default-constructed future has no result and no operation: `valid()` is false and
/// every other member throws `InvalidFutureError`.
///
/// Operations that fail before they start (a missing endpoint, an address that does not
/// pass the checks) call their `onError` inside the call, on the caller's thread, and
/// return a future that is already complete.
template <class T>
class Future {
 public:
  /// The result type.
  using value_type = T;

  Future() = default;

  /// False for a default-constructed future, which has no operation behind it.
  bool valid() const { return state_ != nullptr; }

  /// Whether the result (value or error) is there; never blocks.
  bool is_ready() const {
    requireState("is_ready");
    std::lock_guard lock(state_->mutex);
    return state_->ready;
  }

  /// Blocks until the result is there. Stops the process when called on one of the SDK's
  /// threads before the result is there, since that would deadlock.
  void wait() const {
    requireState("wait");
    std::unique_lock lock(state_->mutex);
    if (!state_->ready && (detail::onTransportThread() || detail::onBackgroundThread())) {
      detail::fatalError(
          "tavik::Future waited on one of the SDK's threads (from inside a continuation); "
          "this would deadlock. Move blocking work off the continuation.");
    }
    state_->ready_cv.wait(lock, [&] { return state_->ready; });
  }

  template <class Rep, class Period>
  /// Waits at most `timeout`; `ready` when the result is there, else `timeout`.
  std::future_status wait_for(const std::chrono::duration<Rep, Period>& timeout) const {
    requireState("wait_for");
    std::unique_lock lock(state_->mutex);
    return state_->ready_cv.wait_for(lock, timeout, [&] { return state_->ready; })
               ? std::future_status::ready
               : std::future_status::timeout;
  }

  /// Blocks until the result is there and returns it, or rethrows the error. See `wait()`.
  T get() const {
    requireState("get");
    wait();
    std::lock_guard lock(state_->mutex);
    if (state_->error) std::rethrow_exception(state_->error);
    return *state_->value;
  }

  template <class F>
  /// Runs `f(future)` once the result is there, on the completing thread; see the class.
  auto whenReady(F&& f) const {
    return whenReady(Executor(), std::forward<F>(f));
  }

  template <class F>
  /// Runs `f(future)` as a task posted to `executor` once the result is there.
  auto whenReady(Executor executor, F&& f) const {
    requireState("whenReady");
    using R = std::invoke_result_t<F, const Future<T>&>;
    return chain<R>(std::move(executor),
                    [self = *this, f = std::forward<F>(f)]() mutable { return f(self); });
  }

  template <class F>
  /// Runs `f(value)` once the value is there, on the completing thread; see the class.
  auto then(F&& f) const {
    return then(Executor(), std::forward<F>(f));
  }

  template <class F>
  /// Runs `f(value)` as a task posted to `executor` once the value is there.
  auto then(Executor executor, F&& f) const {
    requireState("then");
    using R = std::invoke_result_t<F, const T&>;
    return chain<R>(std::move(executor), [self = *this, f = std::forward<F>(f)]() mutable -> R {
      if (self.state_->error) std::rethrow_exception(self.state_->error);
      return f(*self.state_->value);
    });
  }

  /// Asks the operation behind this future to stop. A future made by a continuation
  /// passes the request on to the future it waits for, so cancelling the last future of
  /// a chain reaches the request at its start.
  ///
  /// Cancelling only asks: the future still completes exactly once, later and on the
  /// thread that completes it, either with the error the operation ends with when it
  /// stopped (a request of the SDK: `TransportError` of kind `cancelled`) or with its
  /// result when that came first. A public operation never calls its `onError` once its
  /// future was cancelled (an `onError` running at that moment on another thread is
  /// waited for). Events are not cancellable: cancelling their future changes nothing.
  ///
  /// Returns false when the result is already there or cancel() was called before.
  bool cancel() const {
    requireState("cancel");
    std::vector<std::function<void()>> hooks;
    {
      std::lock_guard lock(state_->mutex);
      if (state_->ready || state_->cancelRequested) return false;
      state_->cancelRequested = true;
      hooks.swap(state_->cancelHooks);
    }
    for (auto& hook : hooks) hook();
    return true;
  }

  /// True once `cancel()` was called on this future (or on one that waits for it) before
  /// its result was there.
  bool cancelRequested() const {
    requireState("cancelRequested");
    std::lock_guard lock(state_->mutex);
    return state_->cancelRequested;
  }

  /// For code that produces futures: runs `hook` when `cancel()` is called before the
  /// result is there (at once if it already was). Dropped unrun once the result is there.
  void onCancel(std::function<void()> hook) const {
    requireState("onCancel");
    {
      std::lock_guard lock(state_->mutex);
      if (state_->ready) return;
      if (!state_->cancelRequested) {
        state_->cancelHooks.push_back(std::move(hook));
        return;
      }
    }
    hook();
  }

  /// A future of the same result that `cancel()` does not pass on: cancelling it leaves
  /// this one and its operation running.
  Future detached() const {
    requireState("detached");
    auto next = std::make_shared<Promise<T>>();
    onReady([next, self = *this]() {
      if (self.state_->error) {
        next->set_exception(self.state_->error);
      } else {
        next->set_value(*self.state_->value);
      }
    });
    return next->get_future();
  }

  /// A future that is already complete with `value`.
  static Future ready(T value) {
    Promise<T> promise;
    promise.set_value(std::move(value));
    return promise.get_future();
  }
  /// A future that is already complete with `error`.
  static Future failed(std::exception_ptr error) {
    Promise<T> promise;
    promise.set_exception(std::move(error));
    return promise.get_future();
  }

 private:
  friend class Promise<T>;
  template <class>
  friend class Future;
  template <class U>
  friend U detail::takeReadyValue(const Future<U>& future);

  explicit Future(std::shared_ptr<detail::SharedState<T>> state) : state_(std::move(state)) {}

  // Runs `callback` once the state is ready (now, if it is).
  void onReady(std::function<void()> callback) const {
    {
      std::lock_guard lock(state_->mutex);
      if (!state_->ready) {
        state_->callbacks.push_back(std::move(callback));
        return;
      }
    }
    callback();
  }

  void requireState(const char* operation) const {
    if (!state_) detail::throwNoState(operation);
  }

  // Passes a cancel() of `next` on to this future.
  template <class U>
  void forwardCancel(const Future<U>& next) const {
    next.onCancel([upstream = std::weak_ptr<detail::SharedState<T>>(state_)] {
      if (auto state = upstream.lock()) Future<T>(std::move(state)).cancel();
    });
  }

  // Runs `callback` once the state is ready: on `executor` when one is given, else at
  // once on the completing thread.
  void onReadyOn(const Executor& executor, std::function<void()> callback) const {
    if (!executor) {
      onReady(std::move(callback));
      return;
    }
    onReady(
        [executor, callback = std::move(callback)]() mutable { executor(std::move(callback)); });
  }

  // Builds the future of a continuation's result `R` (void, a value or a future).
  template <class R, class Body>
  auto chain(Executor executor, Body body) const {
    if constexpr (std::is_void_v<R>) {
      onReadyOn(executor, [body = std::move(body)]() mutable {
        try {
          body();
        } catch (...) {
          // A void continuation has nobody to report to; its error ends with it.
        }
      });
    } else if constexpr (detail::IsFuture<R>::value) {
      using U = typename detail::IsFuture<R>::value_type;
      auto next = std::make_shared<Promise<U>>();
      Future<U> result = next->get_future();
      forwardCancel(result);
      onReadyOn(executor, [next, body = std::move(body)]() mutable {
        try {
          R inner = body();
          inner.requireState("then");
          next->get_future().onCancel([inner] { inner.cancel(); });
          inner.onReady([next, inner]() {
            if (inner.state_->error) {
              next->set_exception(inner.state_->error);
            } else {
              next->set_value(*inner.state_->value);
            }
          });
        } catch (...) {
          next->set_exception(std::current_exception());
        }
      });
      return result;
    } else {
      auto next = std::make_shared<Promise<R>>();
      Future<R> result = next->get_future();
      forwardCancel(result);
      onReadyOn(executor, [next, body = std::move(body)]() mutable {
        try {
          next->set_value(body());
        } catch (...) {
          next->set_exception(std::current_exception());
        }
      });
      return result;
    }
  }

  std::shared_ptr<detail::SharedState<T>> state_;
};

/// The producing side of a `Future`. The first `set_value`, `set_exception` or
/// `abandon` wins; later calls return false.
template <class T>
class Promise {
 public:
  Promise() : state_(std::make_shared<detail::SharedState<T>>()) {}
  Promise(const Promise&) = delete;
  Promise& operator=(const Promise&) = delete;
  /// Moves the producing side; the moved-from promise no longer completes anything.
  Promise(Promise&&) noexcept = default;
  /// Moves the producing side; the moved-from promise no longer completes anything.
  Promise& operator=(Promise&&) noexcept = default;
  /// A promise dropped without a result abandons its future: waiters wake with
  /// `AbandonedError` and continuations are released unrun.
  ~Promise() { abandon(); }

  /// A future of this promise's result; may be called more than once.
  Future<T> get_future() const { return Future<T>(state_); }

  /// Completes with `value` and runs the continuations; false if already complete.
  bool set_value(T value) {
    return complete([&](auto& s) { s.value.emplace(std::move(value)); }, true);
  }
  /// Completes with `error` and runs the continuations; false if already complete.
  bool set_exception(std::exception_ptr error) {
    return complete([&](auto& s) { s.error = std::move(error); }, true);
  }
  /// Completes with `AbandonedError` without running any continuation: used when the
  /// process is exiting and no host code may run any more.
  bool abandon() {
    return complete([](auto& s) { s.error = std::make_exception_ptr(AbandonedError()); }, false);
  }

 private:
  template <class Set>
  bool complete(Set set, bool runCallbacks) {
    if (!state_) return false;
    std::vector<std::function<void()>> callbacks;
    std::vector<std::function<void()>> cancelHooks;  // released outside the lock
    {
      std::lock_guard lock(state_->mutex);
      if (state_->ready) return false;
      set(*state_);
      state_->ready = true;
      callbacks.swap(state_->callbacks);
      cancelHooks.swap(state_->cancelHooks);
    }
    state_->ready_cv.notify_all();
    if (runCallbacks) {
      for (auto& callback : callbacks) callback();
    }
    return true;
  }

  std::shared_ptr<detail::SharedState<T>> state_;
};

namespace detail {
template <class T>
T takeReadyValue(const Future<T>& future) {
  std::lock_guard lock(future.state_->mutex);
  if (future.state_->error) std::rethrow_exception(future.state_->error);
  return std::move(*future.state_->value);
}
}  // namespace detail

}  // namespace tavik
