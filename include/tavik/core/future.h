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

/// Thrown by `Future::get()` when the operation was abandoned (for example by the HTTP
/// client shutting down at process exit) and will never complete.
class AbandonedError : public std::runtime_error {
 public:
  AbandonedError() : std::runtime_error("the operation was abandoned and will not complete") {}
};

namespace detail {

/// True on the SDK's transport thread, where blocking on a future would deadlock.
bool onTransportThread();
[[noreturn]] void fatalError(const char* message);

template <class T>
struct SharedState {
  std::mutex mutex;
  std::condition_variable ready_cv;
  bool ready = false;
  std::optional<T> value;
  std::exception_ptr error;
  std::vector<std::function<void()>> callbacks;
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
///   from inside a continuation: it would wait for itself. The SDK stops the process
///   with a message instead of hanging.
/// - `wait_for(d)` waits at most `d` and tells whether the result is there.
/// - `then(f)` runs `f(value)` once the result is there: at once on the calling thread
///   if it already is, otherwise on the thread that completes it (the SDK's transport
///   thread). It returns a future of what `f` returns; a future returned by `f` is
///   unwrapped. An error skips `f` and passes on. Keep continuations short and never
///   block in them; move work to your own thread or executor.
/// - `whenReady(f)` is `then` for code that also wants to see errors: `f` receives the
///   ready future and may call `get()` on it.
template <class T>
class Future {
 public:
  using value_type = T;

  Future() = default;

  bool valid() const { return state_ != nullptr; }

  bool is_ready() const {
    std::lock_guard lock(state_->mutex);
    return state_->ready;
  }

  void wait() const {
    std::unique_lock lock(state_->mutex);
    if (!state_->ready && detail::onTransportThread()) {
      detail::fatalError(
          "tavik::Future waited on the SDK's transport thread (from inside a continuation); "
          "this would deadlock. Move blocking work off the continuation.");
    }
    state_->ready_cv.wait(lock, [&] { return state_->ready; });
  }

  template <class Rep, class Period>
  std::future_status wait_for(const std::chrono::duration<Rep, Period>& timeout) const {
    std::unique_lock lock(state_->mutex);
    return state_->ready_cv.wait_for(lock, timeout, [&] { return state_->ready; })
               ? std::future_status::ready
               : std::future_status::timeout;
  }

  T get() const {
    wait();
    std::lock_guard lock(state_->mutex);
    if (state_->error) std::rethrow_exception(state_->error);
    return *state_->value;
  }

  template <class F>
  auto whenReady(F&& f) const {
    using R = std::invoke_result_t<F, const Future<T>&>;
    return chain<R>([self = *this, f = std::forward<F>(f)]() mutable { return f(self); });
  }

  template <class F>
  auto then(F&& f) const {
    using R = std::invoke_result_t<F, const T&>;
    return chain<R>([self = *this, f = std::forward<F>(f)]() mutable -> R {
      if (self.state_->error) std::rethrow_exception(self.state_->error);
      return f(*self.state_->value);
    });
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

  // Builds the future of a continuation's result `R` (void, a value or a future).
  template <class R, class Body>
  auto chain(Body body) const {
    if constexpr (std::is_void_v<R>) {
      onReady([body = std::move(body)]() mutable {
        try {
          body();
        } catch (...) {
          // A void continuation has nobody to report to; its error ends with it.
        }
      });
    } else if constexpr (detail::IsFuture<R>::value) {
      using U = typename detail::IsFuture<R>::value_type;
      auto next = std::make_shared<Promise<U>>();
      onReady([next, body = std::move(body)]() mutable {
        try {
          R inner = body();
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
      return next->get_future();
    } else {
      auto next = std::make_shared<Promise<R>>();
      onReady([next, body = std::move(body)]() mutable {
        try {
          next->set_value(body());
        } catch (...) {
          next->set_exception(std::current_exception());
        }
      });
      return next->get_future();
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
  Promise(Promise&&) noexcept = default;
  Promise& operator=(Promise&&) noexcept = default;
  /// A promise dropped without a result abandons its future: waiters wake with
  /// `AbandonedError` and continuations are released unrun.
  ~Promise() { abandon(); }

  Future<T> get_future() const { return Future<T>(state_); }

  bool set_value(T value) {
    return complete([&](auto& s) { s.value.emplace(std::move(value)); }, true);
  }
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
    {
      std::lock_guard lock(state_->mutex);
      if (state_->ready) return false;
      set(*state_);
      state_->ready = true;
      callbacks.swap(state_->callbacks);
    }
    state_->ready_cv.notify_all();
    if (runCallbacks) {
      for (auto& callback : callbacks) callback();
    }
    return true;
  }

  std::shared_ptr<detail::SharedState<T>> state_;
};

}  // namespace tavik
